#include "daemon_processes.h"

#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>
#include <android/binder_process.h>
#include <unistd.h>

#include <optional>
#include <sstream>
#include <utility>

namespace velmora_test {

namespace {

using hub::signals::EvidenceSubType;
using hub::signals::UserEngagementPayload;
using ::ndk::ScopedAStatus;

constexpr int32_t kEngagement = 2;

std::string TextOf(const UserEngagementPayload& payload) {
    std::ostringstream text;
    text << "display " << payload.display;
    for (const auto& region : payload.regions) {
        for (const auto& evidence : region.evidence)
            text << " " << toString(evidence.sub_type.get<EvidenceSubType::Tag::touch_gesture>());
        for (const auto& rect : region.rects.value_or(decltype(region.rects)::value_type()))
            text << " (" << rect->left << " " << rect->top << " " << rect->right << " "
                 << rect->bottom << ")";
    }
    return text.str();
}

}  // namespace

std::unique_ptr<Child> LaunchDaemon(const std::string& log_tags) {
    return LaunchProgram(
            {DAEMON_PROGRAM},
            {.environment = {{"ANDROID_LOG_TAGS", log_tags}}, .echo_log = false, .pool_end = true});
}

std::unique_ptr<Child> StartDaemon(const std::string& log_tags) {
    auto daemon = LaunchDaemon(log_tags);
    EXPECT_TRUE(daemon->log().WaitForLine("SkeldaProducer successfully registered with manager"));
    return daemon;
}

std::unique_ptr<Child> StartTouchsim(const std::vector<std::string>& arguments) {
    std::vector<std::string> line = {TOUCHSIM_PROGRAM};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return LaunchProgram(line, {.pipe_input = true, .pipe_output = true, .echo_log = false});
}

bool WaitForListeners(Child& touchsim, std::chrono::milliseconds limit) {
    return touchsim.log().WaitForLine("panel 0 has a listener", limit) &&
           touchsim.log().WaitForLine("panel 1 has a listener", limit);
}

void Touch(Child& touchsim, const std::string& line) {
    const std::string text = line + "\n";
    EXPECT_EQ(write(touchsim.input(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string TapLine(int n) {
    return R"({"gesture": "tap", "type": "single", "position": [)" + std::to_string(n) + ", 0]}";
}

std::string TapHeard(int n) {
    const std::string x = std::to_string(n);
    return "display 1 SINGLE_TAP (" + x + " 0 " + x + " 0)";
}

class Client::Consumer : public hub::BnVelmoraHubConsumer {
  public:
    Consumer(std::shared_ptr<Record> gestures, std::shared_ptr<Record> fences)
            : gestures_(std::move(gestures)), fences_(std::move(fences)) {}

    ScopedAStatus onSignalAvailable(int32_t /*signalId*/) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSignalUnavailable(int32_t /*signalId*/, SignalError /*error*/) override {
        return ScopedAStatus::ok();
    }
    ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override {
        std::optional<UserEngagementPayload> payload;
        event.payload.getParcelable(&payload);
        if (event.signalId != kEngagement)
            fences_->Add("fence");
        else
            gestures_->Add(payload ? TextOf(*payload) : "no payload");
        return ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Record> gestures_;
    const std::shared_ptr<Record> fences_;
};

Client::Client()
        : producers_(WaitForProducerManager()),
          consumers_(WaitForConsumerManager()),
          gestures_(std::make_shared<Record>()),
          fences_(std::make_shared<Record>()),
          consumer_(ndk::SharedRefBase::make<Consumer>(gestures_, fences_)) {
    const auto producer = MakeProducer();
    EXPECT_TRUE(producers_->registerProducer(MakeDescriptor(getpid()), producer, &own_producer_)
                        .isOk());
    std::shared_ptr<hub::IToken> own_consumer;
    EXPECT_TRUE(consumers_->subscribe(getpid(), consumer_, &own_consumer).isOk());
}

void Client::Subscribe() {
    EXPECT_TRUE(consumers_->subscribe(kEngagement, consumer_, &subscription_).isOk());
    EXPECT_TRUE(Fence());
}

void Client::Unsubscribe() {
    EXPECT_TRUE(consumers_->unsubscribe(std::exchange(subscription_, nullptr)).isOk());
    EXPECT_TRUE(Fence());
}

bool Client::Fence() {
    if (!producers_->updateSignal(own_producer_, MakeEvent(getpid())).isOk()) return false;
    ++fence_count_;
    return fences_->WaitFor(fence_count_).size() >= fence_count_;
}

HOST_HELPER(ClientProcess) {
    ABinderProcess_startThreadPool();
    Client client;
    channel.Serve([&](const std::string& command) -> std::string {
        if (command == "subscribe") client.Subscribe();
        if (command[0] != 'g') return client.Fence() ? "done" : "lost";
        std::string text;
        for (const std::string& gesture :
             client.gestures().WaitFor(std::stoul(command.substr(sizeof("gestures")))))
            text += (text.empty() ? "" : " | ") + gesture;
        return text;
    });
    return 0;
}

Everything::Everything() {
    here.Subscribe();
    EXPECT_EQ(there.Command("subscribe"), "done");
    EXPECT_TRUE(WaitForListeners(*touchsim));
    Touch(*touchsim, TapLine(1));
    EXPECT_EQ(there.Command("gestures 1"), TapHeard(1));
}

}  // namespace velmora_test
