// The other process of versions_test, built with the package's newer version.
//
//   newer_peer serve NAME   publishes a store until it is killed
//   newer_peer ask NAME     calls the store of that name and prints what it answers
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>
#include <cstring>

#include "store.h"

namespace calls_test {
namespace {

using aidl::test::versions::IStore;
using aidl::test::versions::Record;
using aidl::test::versions::Setting;
using aidl::test::versions::Value;

class NewerStore : public Store {
  public:
    ScopedAStatus count(int32_t* out) override {
        std::vector<Record> all;
        records(&all);
        *out = static_cast<int32_t>(all.size());
        return ScopedAStatus::ok();
    }
};

int Serve(const char* name) {
    const auto store = ndk::SharedRefBase::make<NewerStore>();
    if (AServiceManager_addService(store->asBinder().get(), name) != EX_NONE) return 1;
    ABinderProcess_joinThreadPool();
    return 0;
}

std::vector<Record> NewerRecords() {
    std::vector<Record> records(2);
    records[0].number = 10;
    records[0].text = "first";
    records[0].more = 70;
    records[0].note = "a note that is much longer than all the rest";
    records[0].labels = {"x"};
    records[0].setting = Setting::PLAIN;
    records[1].number = 20;
    return records;
}

int Ask(const char* name) {
    const auto store = IStore::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name)));
    if (store == nullptr) return 1;
    int32_t number = 0;
    std::string text;
    store->getInterfaceVersion(&number);
    store->getInterfaceHash(&text);
    std::printf("version %d, %s hash\n", number, text == IStore::hash ? "the same" : "another");

    store->put(NewerRecords(), "mark");
    store->describe(&text);
    std::printf("%s\n", text.c_str());
    std::vector<Record> records;
    store->records(&records);
    for (const Record& record : records)
        std::printf("%s\n", record.toString().c_str());

    std::printf("count: %d\n", store->count(&number).getStatus() == STATUS_UNKNOWN_TRANSACTION);
    Setting setting{};
    store->echoSetting(Setting::QUIET, &setting);
    std::printf("setting: %s\n", toString(setting).c_str());
    Value value;
    ndk::ScopedAStatus status = store->echoValue(Value::make<Value::Tag::real>(0.5), &value);
    std::printf("real: %d\n", status.getStatus() == STATUS_BAD_VALUE);
    status = store->echoValue(Value::make<Value::Tag::text>("t"), &value);
    std::printf("text: %s\n", status.isOk() ? value.toString().c_str() : "refused");
    return 0;
}

}  // namespace
}  // namespace calls_test

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    return std::strcmp(argv[1], "serve") == 0 ? calls_test::Serve(argv[2])
                                              : calls_test::Ask(argv[2]);
}
