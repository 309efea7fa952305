// Labels: memory processes
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include "node.h"
#include "store.h"

namespace calls_test {
namespace {

using aidl::test::versions::IStore;
using aidl::test::versions::Record;
using aidl::test::versions::Setting;
using aidl::test::versions::Value;
using host::testing::Child;
using host::testing::ExitStatus;
using host::testing::LaunchProgram;
using host::testing::LineChannel;

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

TEST(OlderClient, UsesANewerServiceAsFarAsItKnowsIt) {
    const std::unique_ptr<Child> peer = LaunchProgram({NEWER_PEER, "serve", "newer"}, {});
    const auto store = IStore::fromBinder(SpAIBinder(AServiceManager_waitForService("newer")));
    ASSERT_NE(store, nullptr);
    int32_t version = 0;
    std::string hash;
    ASSERT_TRUE(store->getInterfaceVersion(&version).isOk());
    ASSERT_TRUE(store->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(version, 2);
    EXPECT_EQ(hash.size(), IStore::hash.size());
    EXPECT_NE(hash, IStore::hash);

    std::vector<Record> sent(2);
    sent[0].number = 10;
    sent[1].text = "second";
    ASSERT_TRUE(store->put(sent, "mark").isOk());
    // The fields that this process does not know have what a new record has.
    std::string seen;
    ASSERT_TRUE(store->describe(&seen).isOk());
    EXPECT_EQ(seen,
              "mark: Record{number: 10, text: text, more: 7, note: null, labels: [a, b], "
              "setting: QUIET} Record{number: 1, text: second, more: 7, note: null, "
              "labels: [a, b], setting: QUIET}");
    // They come back with them, which this process skips.
    std::vector<Record> back;
    ASSERT_TRUE(store->records(&back).isOk());
    EXPECT_EQ(back, sent);
}

TEST(OlderService, ServesANewerClientAsFarAsItKnowsIt) {
    const auto store = ndk::SharedRefBase::make<Store>();
    ASSERT_EQ(AServiceManager_addService(store->asBinder().get(), "older"), EX_NONE);
    const std::unique_ptr<Child> peer =
            LaunchProgram({NEWER_PEER, "ask", "older"}, {.pipe_output = true});
    LineChannel output(peer->output(), -1);
    for (const char* line : {
                 "version 1, another hash",
                 "mark: Record{number: 10, text: first} Record{number: 20, text: text}",
                 "Record{number: 10, text: first, more: 7, note: null, labels: [a, b], "
                 "setting: QUIET}",
                 "Record{number: 20, text: text, more: 7, note: null, labels: [a, b], "
                 "setting: QUIET}",
                 "count: 1",
                 "setting: QUIET",
                 "real: 1",
                 "text: Value{text: t}",
         }) {
        EXPECT_EQ(output.Read(host::testing::kTestLimit), line);
    }
    EXPECT_EQ(peer->WaitExit(), (ExitStatus{.code = 0}));
}

}  // namespace
}  // namespace calls_test
