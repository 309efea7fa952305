#include "push.h"

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <fcntl.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "event_codec.h"

namespace velmoractl {

namespace {

// Without the mark that the JSON library puts in front: "[json.exception.out_of_range.403] ".
std::string ReasonOf(const std::exception& error) {
    const std::string what = error.what();
    return what[0] == '[' ? what.substr(what.find(' ') + 1) : what;
}

}  // namespace

// Hands over what the hub asks for, in its order. Any thread.
class Push::Producer : public hub::BnVelmoraHubProducer {
  public:
    Producer(std::shared_ptr<Loop> loop, Push* push) : loop_(std::move(loop)), push_(push) {}

    ndk::ScopedAStatus onClientsUpdated(bool clients) override {
        loop_->Post([push = push_, clients] { push->OnDemand(clients); });
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus nudge() override {
        loop_->Post([push = push_] {
            PrintNotice(push->output_, push->signal_,
                        {{"kind", "nudge"}, {"signal", push->signal_}}, "asked for an update");
        });
        return ndk::ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Loop> loop_;
    Push* const push_;  // outlives the tasks that run, not this object
};

Push::Push(const Options& options, const Output& output, const std::shared_ptr<Loop>& loop)
        : options_(options),
          output_(output),
          loop_(loop),
          signal_(options.signals.front()),
          made_up_(options.rate && options.file.empty()),
          lines_(options.file.empty() || options.file == "-"
                         ? STDIN_FILENO
                         : open(options.file.c_str(), O_RDONLY | O_CLOEXEC)),
          next_(Loop::Clock::now()),
          wanted_(!options.wait) {}

int Push::Run() {
    hub_ = WaitForHub(output_);
    if (hub_.producers == nullptr) return kError;
    const DeathWatch death(
            hub_, [this, loop = loop_] { loop->Post([this] { Fail("the hub has died"); }); });
    if (!death.alive()) Fail("the hub has died");
    if (!made_up_ && lines_.descriptor() < 0) Fail("cannot read " + options_.file);
    if (loop_->stopped() || !Register()) return kError;
    while (!loop_->stopped())
        Step();
    hub_.producers->unregisterProducer(token_);
    return kDone;
}

bool Push::Register() {
    hub::SignalDescriptor descriptor;
    descriptor.signalId = signal_;
    descriptor.ttlMs = options_.ttl_ms;
    const auto producer = ndk::SharedRefBase::make<Producer>(loop_, this);
    const ndk::ScopedAStatus status =
            hub_.producers->registerProducer(descriptor, producer, &token_);
    if (!status.isOk()) output_.Talk("the hub refuses: " + status.getDescription());
    if (status.isOk()) output_.Talk("signal " + std::to_string(signal_) + " is registered");
    if (status.isOk() && made_up_) output_.Talk("events are made up; --file - reads lines");
    return status.isOk();
}

void Push::Step() {
    if (!wanted_) {
        loop_->Next();
    } else if (options_.rate && Loop::Clock::now() < next_) {
        loop_->Next(-1, next_);
    } else if (PushNext()) {
        // What the hub says comes in between.
        loop_->Next(-1, Loop::Clock::now());
    } else if (lines_.ended()) {
        loop_->Stop(kDone);
    } else if (loop_->Next(lines_.descriptor()) == Loop::Wake::kInput) {
        lines_.Read();
    }
}

bool Push::PushNext() {
    if (!made_up_) return PushLine();
    hub::SignalDescriptor payload;
    payload.signalId = signal_;
    payload.tags = {"event " + std::to_string(events_ + 1)};
    hub::VelmoraEvent event = NewEvent(signal_);
    event.payload.setParcelable(payload);
    return PushEvent(event);
}

bool Push::PushLine() {
    const std::optional<std::string> line = lines_.Take();
    if (!line && lines_.overlong())
        Fail("line " + std::to_string(lines_.number() + 1) + ": too long");
    if (!line) return false;
    if (line->find_first_not_of(" \t\r") == line->npos) return true;
    try {
        const std::optional<hub::VelmoraEvent> event = EventFromLine(*line, signal_);
        return !event || PushEvent(*event);
    } catch (const std::exception& error) {
        Fail("line " + std::to_string(lines_.number()) + ": " + ReasonOf(error));
        return true;
    }
}

bool Push::PushEvent(const hub::VelmoraEvent& event) {
    const ndk::ScopedAStatus status = hub_.producers->updateSignal(token_, event);
    if (!status.isOk()) {
        Fail("the hub takes no event: " + status.getDescription());
        return true;
    }
    PrintEvent(output_, signal_, event);
    if (options_.rate) SetNext(1 / *options_.rate);
    ++events_;
    if (options_.count && events_ >= *options_.count) loop_->Stop(kDone);
    return true;
}

// What was late is made up for by one event at most: a pause is not followed by a burst.
void Push::SetNext(double seconds) {
    const auto period = std::chrono::duration_cast<Loop::Clock::duration>(
            std::chrono::duration<double>(seconds));
    next_ = std::max(next_, Loop::Clock::now() - period) + period;
}

void Push::OnDemand(bool clients) {
    wanted_ |= clients;
    PrintNotice(output_, signal_, {{"kind", "demand"}, {"signal", signal_}, {"clients", clients}},
                clients ? "wanted: there are consumers" : "not wanted: the last consumer has left");
}

void Push::Fail(const std::string& reason) {
    output_.Talk(reason);
    loop_->Stop(kError);
}

}  // namespace velmoractl
