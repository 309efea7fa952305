#include "watch.h"

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>

#include <utility>

#include "event_codec.h"

namespace velmoractl {

namespace {

// Until the service manager has noticed a death that was noticed here.
constexpr std::chrono::milliseconds kPause{50};

}  // namespace

// Hands over what the hub tells of one signal, in its order. Any thread.
class Watch::Consumer : public hub::BnVelmoraHubConsumer {
  public:
    Consumer(std::shared_ptr<Loop> loop, Watch* watch, int32_t signal)
            : loop_(std::move(loop)), watch_(watch), signal_(signal) {}

    ndk::ScopedAStatus onSignalAvailable(int32_t) override {
        loop_->Post([watch = watch_, signal = signal_] { watch->OnAvailable(signal); });
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override {
        loop_->Post([watch = watch_, signal = signal_, event] { watch->OnEvent(signal, event); });
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSignalUnavailable(int32_t, SignalError error) override {
        loop_->Post([watch = watch_, signal = signal_, name = toString(error)] {
            const Json notice = {{"kind", "unavailable"}, {"signal", signal}, {"error", name}};
            PrintNotice(watch->output_, signal, notice, "unavailable: " + name);
        });
        return ndk::ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Loop> loop_;
    Watch* const watch_;  // outlives the tasks that run, not this object
    const int32_t signal_;
};

int Watch::Run() {
    while (!loop_->stopped()) {
        hub_ = WaitForHub(output_);
        if (hub_.producers == nullptr) return kError;
        const DeathWatch death(hub_, [this, loop = loop_, generation = ++generation_] {
            loop->Post([this, generation] { attached_ &= generation != generation_; });
        });
        attached_ = death.alive() && Attach();
        const bool was_attached = attached_;
        while (attached_ && loop_->Next() != Loop::Wake::kStopped) {
        }
        if (loop_->stopped()) break;
        if (was_attached) output_.Talk("the hub has died");
        loop_->Next(-1, Loop::Clock::now() + kPause);
    }
    if (!attached_) return kDone;
    for (const int32_t signal : options_.signals)
        Unsubscribe(signal);
    return kDone;
}

bool Watch::Attach() {
    const SignalTable producers = ProducersOf(hub_);
    for (const int32_t signal : options_.signals) {
        subscriptions_[signal] = {};
        if (!Subscribe(signal)) return false;
        const bool produced = FindSignal(producers, signal) != nullptr;
        output_.Talk("watching signal " + std::to_string(signal) +
                     (produced ? "" : ", which has no producer yet"));
    }
    return true;
}

bool Watch::Subscribe(int32_t signal) {
    Subscription& subscription = subscriptions_[signal];
    subscription.consumer = ndk::SharedRefBase::make<Consumer>(loop_, this, signal);
    return Check(hub_.consumers->subscribe(signal, subscription.consumer, &subscription.token));
}

bool Watch::Unsubscribe(int32_t signal) {
    const std::shared_ptr<hub::IToken> token = std::exchange(subscriptions_[signal].token, nullptr);
    return token == nullptr || Check(hub_.consumers->unsubscribe(token));
}

void Watch::OnAvailable(int32_t signal) {
    PrintNotice(output_, signal, {{"kind", "available"}, {"signal", signal}}, "available");
    if (attached_) Renew(signal);
}

void Watch::OnEvent(int32_t signal, const hub::VelmoraEvent& event) {
    PrintEvent(output_, signal, event);
    if (options_.count && ++events_ >= *options_.count) loop_->Stop(kDone);
}

void Watch::Renew(int32_t signal) {
    if (!Unsubscribe(signal)) return;
    const SignalTable consumers = ConsumersOf(hub_);
    const SignalRow* others = FindSignal(consumers, signal);
    const std::string name = "signal " + std::to_string(signal);
    if (!Subscribe(signal)) return;
    output_.Talk(name + " was subscribed to before its producer came: subscribed anew");
    if (others != nullptr && !others->tokens.empty()) {
        output_.Talk("warning: " + name + " has other consumers from before, so its producer may " +
                     "not know that it is wanted, and events may stay away");
    }
}

bool Watch::Check(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return true;
    if (status.getStatus() == STATUS_DEAD_OBJECT) return false;
    output_.Talk("the hub refuses: " + status.getDescription());
    loop_->Stop(kError);
    return false;
}

}  // namespace velmoractl
