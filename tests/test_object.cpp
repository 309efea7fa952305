#include "test_object.h"

#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace host::testing {
namespace {

struct Behaviour {
    Handler handler;
    std::function<void()> on_destroy;
};

binder_status_t Write(AParcel* parcel, const Letter& letter) {
    binder_status_t status = AParcel_writeInt32(parcel, letter.value);
    if (status == STATUS_OK) status = AParcel_writeStrongBinder(parcel, letter.binder.get());
    return status == STATUS_OK ? ndk::AParcel_writeVector(parcel, letter.numbers) : status;
}

binder_status_t Read(const AParcel* parcel, Letter* letter) {
    binder_status_t status = AParcel_readInt32(parcel, &letter->value);
    if (status == STATUS_OK) status = AParcel_readStrongBinder(parcel, letter->binder.getR());
    return status == STATUS_OK ? ndk::AParcel_readVector(parcel, &letter->numbers) : status;
}

binder_status_t OnTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    auto* behaviour = static_cast<Behaviour*>(AIBinder_getUserData(binder));
    Letter question, answer;
    binder_status_t status = Read(in, &question);
    if (status == STATUS_OK) status = behaviour->handler(static_cast<int>(code), question, &answer);
    return status == STATUS_OK ? Write(out, answer) : status;
}

binder_status_t OnDump(AIBinder*, int fd, const char** args, uint32_t count) {
    const std::vector<std::string> words(args, args + count);
    if (!words.empty() && words[0] == "refuse") return STATUS_PERMISSION_DENIED;
    std::string text;
    for (const std::string& word : words)
        text += word + "\n";
    if (!words.empty() && words[0] == "bytes") text.assign(std::stoul(words[1]), 'x');
    const auto written = write(fd, text.data(), text.size());
    return written == static_cast<ssize_t>(text.size()) ? STATUS_OK : STATUS_UNKNOWN_ERROR;
}

AIBinder_Class* DefineTestClass() {
    AIBinder_Class* const clazz = AIBinder_Class_define(
            "test.IObject", [](void* behaviour) { return behaviour; },
            [](void* behaviour) {
                std::unique_ptr<Behaviour> last(static_cast<Behaviour*>(behaviour));
                if (last->on_destroy) last->on_destroy();
            },
            OnTransact);
    AIBinder_Class_setOnDump(clazz, OnDump);
    return clazz;
}

const AIBinder_Class* TestClass() {
    static const AIBinder_Class* const clazz = DefineTestClass();
    return clazz;
}

binder_status_t Transact(const ndk::SpAIBinder& target, int code, const Letter& in, Letter* out,
                         binder_flags_t flags) {
    if (!AIBinder_associateClass(target.get(), TestClass())) return STATUS_BAD_TYPE;
    AParcel* question = nullptr;
    binder_status_t status = AIBinder_prepareTransaction(target.get(), &question);
    if (status != STATUS_OK) return status;
    status = Write(question, in);
    ndk::ScopedAParcel written(question), answer;
    if (status != STATUS_OK) return status;
    question = written.release();
    status = AIBinder_transact(target.get(), static_cast<transaction_code_t>(code), &question,
                               answer.getR(), flags);
    return status == STATUS_OK && out != nullptr ? Read(answer.get(), out) : status;
}

std::string NextName() {
    static std::atomic<int> number{0};
    return "object/" + std::to_string(getpid()) + "-" + std::to_string(++number);
}

std::vector<std::string> WithName(const std::string& name, const std::vector<std::string>& others) {
    std::vector<std::string> all = {name};
    all.insert(all.end(), others.begin(), others.end());
    return all;
}

}  // namespace

ndk::SpAIBinder MakeObject(Handler handler, std::function<void()> on_destroy) {
    auto* behaviour = new Behaviour{std::move(handler), std::move(on_destroy)};
    return ndk::SpAIBinder(AIBinder_new(TestClass(), behaviour));
}

binder_status_t Call(const ndk::SpAIBinder& target, int code, const Letter& in, Letter* out) {
    return Transact(target, code, in, out, 0);
}

Letter Ask(const ndk::SpAIBinder& target, int code, const Letter& in) {
    Letter answer;
    EXPECT_EQ(Call(target, code, in, &answer), STATUS_OK) << "code " << code;
    return answer;
}

binder_status_t Post(const ndk::SpAIBinder& target, int code, const Letter& in) {
    return Transact(target, code, in, nullptr, FLAG_ONEWAY);
}

int Serve(HelperChannel& channel, Handler handler,
          const std::function<std::string(const std::string&)>& command) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder object = MakeObject(std::move(handler));
    const std::string& name = channel.arguments().front();
    if (AServiceManager_addService(object.get(), name.c_str()) != EX_NONE) return 1;
    channel.Serve(command ? command : [](const std::string& line) { return line; });
    return 0;
}

RemoteObject::RemoteObject(const std::string& helper, const std::vector<std::string>& arguments)
        : name_(NextName()),
          helper_(helper, WithName(name_, arguments)),
          object_(AServiceManager_waitForService(name_.c_str())) {}

void Counter::Add(int more) {
    std::lock_guard lock(mutex_);
    value_ += more;
    changed_.notify_all();
}

bool Counter::WaitFor(int value, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this, value] { return value_ >= value; });
}

int Counter::value() const {
    std::lock_guard lock(mutex_);
    return value_;
}

ndk::SpAIBinder Own::New() {
    return MakeObject(
            [counts = counts_](int, const Letter&, Letter*) {
                counts->called.Add();
                return STATUS_OK;
            },
            [counts = counts_] { counts->destroyed.Add(); });
}

void InParallel(int count, const std::function<void()>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(body);
    for (std::thread& thread : threads)
        thread.join();
}

void Await(std::chrono::nanoseconds delay) {
    const auto due = std::chrono::steady_clock::now() + delay;
    while (std::chrono::steady_clock::now() < due)
        sched_yield();
}

ProcessCounts ProcessCounts::Of(pid_t pid) {
    return {OpenDescriptors(pid), Threads(pid)};
}

void SharedHost::SetUp() {
    host_ = std::make_unique<ScopedHost>(ScopedHostOptions{.echo_log = false});
    ABinderProcess_startThreadPool();
}

}  // namespace host::testing
