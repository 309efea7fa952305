// What event_path_counts runs under callgrind: pushes events through a hub to consumers in the same
// process, and collects in two phases that never overlap, so that no count depends on how threads
// are scheduled. First the worker is held by a task while this thread pushes; then the worker is
// let go and dispatches all of it, while this thread waits.
//
// A dump of callgrind per phase carries its name: "push CONSUMERS EVENTS ALLOCATIONS" or
// "dispatch ...", the allocations being those of the phase's thread.

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <stdio.h>
#include <stdlib.h>
#include <valgrind/callgrind.h>

#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "counted_hub.h"
#include "event_path_sizes.h"
#include "platform/binder/tests/allocation_counter.h"
#include "worker/callable.h"

namespace bench {
namespace {

using ::aidl::android::hardware::biometrics::Callable;
using ::ndk::ScopedAStatus;

constexpr int32_t kSignal = 5;

void Require(bool holds, const char* what) {
    if (holds) return;
    fprintf(stderr, "event_path_probe: %s failed\n", what);
    exit(1);
}

class Consumer : public hub::BnVelmoraHubConsumer {
  public:
    ScopedAStatus onSignalAvailable(int32_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSignalUnavailable(int32_t, SignalError) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSignalUpdate(const hub::VelmoraEvent&) override {
        ++events;
        return ScopedAStatus::ok();
    }
    int events = 0;  // the worker's; read when it is at rest
};

class Producer : public hub::BnVelmoraHubProducer {
  public:
    ScopedAStatus onClientsUpdated(bool) override { return ScopedAStatus::ok(); }
    ScopedAStatus nudge() override { return ScopedAStatus::ok(); }
};

hub::VelmoraEvent MakeEvent() {
    hub::SignalDescriptor payload;
    payload.tags = {std::string(kPayloadBytes, 'x')};
    hub::VelmoraEvent event;
    event.signalId = kSignal;
    event.payload.setParcelable(payload);
    return event;
}

void Dump(const char* phase, int consumers, int events, int allocations) {
    const std::string name = std::string(phase) + " " + std::to_string(consumers) + " " +
                             std::to_string(events) + " " + std::to_string(allocations);
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

// A hub with so many consumers of one signal, and its producer.
class Run {
  public:
    explicit Run(int consumers) : event_(MakeEvent()) {
        hub::SignalDescriptor descriptor;
        descriptor.signalId = kSignal;
        hub_.producers().registerProducer(descriptor, ::ndk::SharedRefBase::make<Producer>(),
                                          &token_);
        Require(token_ != nullptr, "registering");
        for (int i = 0; i < consumers; ++i) {
            consumers_.push_back(::ndk::SharedRefBase::make<Consumer>());
            std::shared_ptr<hub::IToken> token;
            Require(hub_.consumers().subscribe(kSignal, consumers_.back(), &token).isOk(),
                    "subscribing");
        }
    }

    // Both phases with so many events; each is dumped.
    void Measure(int events) {
        std::promise<void> held, released, done;
        int dispatch_allocations = 0;
        Schedule([&] {
            held.set_value();
            released.get_future().wait();
            dispatch_allocations = -allocation_count;
            CALLGRIND_TOGGLE_COLLECT;
        });
        held.get_future().wait();
        const int push_allocations = Push(events);
        Schedule([&] {
            CALLGRIND_TOGGLE_COLLECT;
            dispatch_allocations += allocation_count;
            done.set_value();
        });
        Dump("push", Consumers(), events, push_allocations);
        released.set_value();
        done.get_future().wait();
        Dump("dispatch", Consumers(), events, dispatch_allocations);
        expected_ += events;
        for (const auto& consumer : consumers_)
            Require(consumer->events == expected_, "delivering every event");
    }

  private:
    int Consumers() const { return static_cast<int>(consumers_.size()); }

    template <typename F>
    void Schedule(F&& task) {
        Require(hub_.worker().schedule(Callable::wrap(std::forward<F>(task))), "scheduling");
    }

    // Collects on this thread. Returns its allocations.
    int Push(int events) {
        hub::IVelmoraHubProducerManager& producers = hub_.producers();
        const int before = allocation_count;
        CALLGRIND_TOGGLE_COLLECT;
        for (int i = 0; i < events; ++i)
            producers.updateSignal(token_, event_);
        CALLGRIND_TOGGLE_COLLECT;
        return allocation_count - before;
    }

    const hub::VelmoraEvent event_;
    CountedHub hub_;
    std::shared_ptr<hub::IToken> token_;
    std::vector<std::shared_ptr<Consumer>> consumers_;
    int expected_ = 0;
};

}  // namespace
}  // namespace bench

int main() {
    for (const int consumers : bench::kConsumers) {
        bench::Run run(consumers);
        run.Measure(bench::kEvents);  // buffers reach their size, symbols are bound
        run.Measure(0);
        run.Measure(bench::kEvents);
    }
    return 0;
}
