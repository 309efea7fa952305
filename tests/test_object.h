// An object whose behaviour is a function, and processes that serve one: what the tests across
// processes are written with. Functions may be called from any thread; a RemoteObject belongs to
// one.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host_testing.h"

namespace host::testing {

// What every call carries, both ways.
struct Letter {
    int32_t value = 0;
    ndk::SpAIBinder binder;
    std::vector<int32_t> numbers;
};

using Handler = std::function<binder_status_t(int code, const Letter& in, Letter* out)>;

// A new object of this process; `on_destroy` runs when its last reference has gone. A dump writes
// the arguments, one a line; `bytes N` instead N bytes, `refuse` nothing but a failure.
ndk::SpAIBinder MakeObject(Handler handler, std::function<void()> on_destroy = {});

// A two-way call; `out` may be null.
binder_status_t Call(const ndk::SpAIBinder& target, int code, const Letter& in = {},
                     Letter* out = nullptr);

// What a two-way call answers, which must succeed.
Letter Ask(const ndk::SpAIBinder& target, int code, const Letter& in = {});

// A oneway call.
binder_status_t Post(const ndk::SpAIBinder& target, int code, const Letter& in = {});

// For a helper: publishes an object with that handler under the name that its RemoteObject gave it,
// then obeys commands until the driver is done. Starts the pool before.
int Serve(HelperChannel& channel, Handler handler,
          const std::function<std::string(const std::string&)>& command = {});

// A helper process that calls Serve, and its object.
class RemoteObject {
  public:
    // Returns when the object is published.
    explicit RemoteObject(const std::string& helper,
                          const std::vector<std::string>& arguments = {});

    Helper& helper() { return helper_; }
    Child& process() { return helper_.process(); }
    pid_t pid() const { return helper_.pid(); }
    const ndk::SpAIBinder& object() const { return object_; }
    const std::string& name() const { return name_; }
    void Forget() { object_.set(nullptr); }

  private:
    std::string name_;
    Helper helper_;
    ndk::SpAIBinder object_;
};

// A number that threads raise and wait for.
class Counter {
  public:
    void Add(int more = 1);
    // False if it is still lower when the time is up.
    bool WaitFor(int value, std::chrono::milliseconds limit = kTestLimit);
    int value() const;

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int value_ = 0;
};

// Objects of this process that count their calls and their ends. They may outlive this.
class Own {
    struct Counts {
        Counter called, destroyed;
    };
    const std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();

  public:
    Counter& called = counts_->called;
    Counter& destroyed = counts_->destroyed;
    ndk::SpAIBinder object = New();

    ndk::SpAIBinder New();
};

// Runs the body on so many threads at the same time, and returns when all have ended.
void InParallel(int count, const std::function<void()>& body);

// Returns when the time is over, and does not oversleep: gives its processor up to others only.
void Await(std::chrono::nanoseconds delay);

// What a process has open and running, for comparing before with after.
struct ProcessCounts {
    int descriptors = 0;
    int threads = 0;

    static ProcessCounts Of(pid_t pid);
    bool IsMoreThan(const ProcessCounts& other) const {
        return descriptors > other.descriptors || threads > other.threads;
    }
};

// The environment of a whole test program: a folder with its service manager, and this process's
// pool.
class SharedHost : public ::testing::Environment {
  public:
    void SetUp() override;
    void TearDown() override { host_.reset(); }

  private:
    std::unique_ptr<ScopedHost> host_;
};

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HOST_TEST_SANITIZED 1
#endif
#endif

// Sanitizers make every step slow: they get a smaller number of rounds.
#if defined(HOST_TEST_SANITIZED)
constexpr int Rounds(int, int under_sanitizers) {
    return under_sanitizers;
}
#else
constexpr int Rounds(int plain, int) {
    return plain;
}
#endif

}  // namespace host::testing
