// Labels: memory
// What the way of one event allocates: the task and two copies of the event, however many consumers
// there are.

#include <android/log.h>
#include <gtest/gtest.h>

#include <future>

#include "hub_parts.h"
#include "platform/binder/tests/allocation_counter.h"
#include "worker/callable.h"

namespace velmora_test {
namespace {

using ::aidl::android::hardware::biometrics::Callable;
using ::ndk::ScopedAStatus;

// Allocates nothing for an event.
class QuietConsumer : public RecordingConsumer {
  public:
    ScopedAStatus onSignalUpdate(const hub::VelmoraEvent&) override {
        ++events;
        return ScopedAStatus::ok();
    }
    int events = 0;  // the worker's; read when it is at rest
};

// What the worker's thread has allocated so far, when everything before has run.
int CountOfWorker(const Hub& hub) {
    std::promise<int> count;
    hub.worker->schedule(Callable::wrap([&] { count.set_value(allocation_count); }));
    return count.get_future().get();
}

constexpr int kEvents = 64;  // fewer than the queue takes

// Pushes so many. Returns the allocations of this thread.
int Push(const Hub& hub, const std::shared_ptr<hub::IToken>& token,
         const hub::VelmoraEvent& event) {
    const int before = allocation_count;
    for (int i = 0; i < kEvents; ++i)
        EXPECT_TRUE(hub.producers->updateSignal(token, event).isOk());
    return allocation_count - before;
}

TEST(EventPath, AllocatesTheTaskAndTwoCopiesForAnyNumberOfConsumers) {
    __android_log_set_logger([](const __android_log_message*) {});
    const hub::VelmoraEvent event = MakeEvent(5, 7, "a payload");
    const int before_copy = allocation_count;
    const hub::VelmoraEvent copy(event);
    const int per_copy = allocation_count - before_copy;
    EXPECT_EQ(per_copy, 1);
    for (const size_t consumers : {1, 8, 64}) {
        SCOPED_TRACE(consumers);
        const Hub hub;
        const auto token = Register(*hub.producers, MakeDescriptor(5), MakeProducer());
        std::vector<std::shared_ptr<QuietConsumer>> listening;
        while (listening.size() < consumers) {
            listening.push_back(ndk::SharedRefBase::make<QuietConsumer>());
            Subscribe(*hub.consumers, 5, listening.back());
        }
        const int worker_before = CountOfWorker(hub);
        const int pushing = Push(hub, token, event);
        EXPECT_EQ(CountOfWorker(hub) - worker_before, kEvents * per_copy);
        EXPECT_EQ(pushing, kEvents * (1 + per_copy));
        for (const auto& consumer : listening)
            EXPECT_EQ(consumer->events, kEvents);
    }
    __android_log_set_logger(__android_log_stderr_logger);
}

}  // namespace
}  // namespace velmora_test
