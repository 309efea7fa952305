// Labels: memory threads processes
// Touch services that die, stop and refuse, and what the daemon does meanwhile.

#include <aidl/com/quorin/input/BnSkeldaNotificationService.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gmock/gmock.h>
#include <signal.h>

#include <map>
#include <mutex>

#include "daemon_processes.h"

namespace velmora_test {
namespace {

namespace input = ::aidl::com::quorin::input;
using host::testing::Eventually;
using host::testing::ExitStatus;
using host::testing::Helper;
using host::testing::ProcessState;
using ::ndk::ScopedAStatus;
using std::chrono::seconds;
using std::chrono::steady_clock;

// Shorter than the pause after a failure: who keeps it has not paused.
constexpr std::chrono::milliseconds kAtOnce{4000};

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

// Stops its process inside the call of that name: "info", or "register" of the second panel.
class StoppingService : public input::BnSkeldaNotificationService {
  public:
    explicit StoppingService(std::string where) : where_(std::move(where)) {}

    ScopedAStatus getPanelInfo(std::vector<input::PanelInfo>* out) override {
        if (where_ == "info") raise(SIGSTOP);
        out->resize(2);
        (*out)[1].panelId = input::PanelID::SECONDARY;
        return ScopedAStatus::ok();
    }
    ScopedAStatus registerListener(
            input::PanelID panelId, int32_t /*notificationFlags*/,
            const std::shared_ptr<input::ISkeldaNotificationListener>& listener) override {
        if (where_ == "register" && panelId == input::PanelID::SECONDARY) raise(SIGSTOP);
        std::lock_guard lock(mutex_);
        listeners_[panelId] = listener;
        return ScopedAStatus::ok();
    }
    ScopedAStatus unregisterListener(
            input::PanelID /*panelId*/,
            const std::shared_ptr<input::ISkeldaNotificationListener>& /*listener*/) override {
        return ScopedAStatus::ok();
    }

    // An empty packet from each panel that has a listener.
    void Send() {
        std::lock_guard lock(mutex_);
        for (const auto& [panel, listener] : listeners_) {
            input::SkeldaNotificationMsg msg;
            msg.panelId = panel;
            msg.notification.set<input::SkeldaNotification::Tag::touchGesturePacket>();
            listener->onNotificationReceived(msg);
        }
    }

  private:
    const std::string where_;
    std::mutex mutex_;
    std::map<input::PanelID, std::shared_ptr<input::ISkeldaNotificationListener>> listeners_
            GUARDED_BY(mutex_);
};

HOST_HELPER(StoppingTouchService) {
    ABinderProcess_startThreadPool();
    const auto service = ndk::SharedRefBase::make<StoppingService>(channel.arguments().at(0));
    const std::string name = std::string(StoppingService::descriptor) + "/default";
    if (AServiceManager_addService(service->asBinder().get(), name.c_str()) != EX_NONE) return 1;
    channel.Serve([&](const std::string& command) {
        service->Send();
        return command;
    });
    return 0;
}

TEST(TouchService, IsFoundAgainAtOnceAfterItsDeathWhileGesturesFlow) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    for (int round = 1; round <= 5; ++round) {
        const size_t before = client.gestures().lines().size();
        const auto first =
                StartTouchsim({TOUCHSIM_SAMPLES "/taps.jsonl", "--loop", "--speed", "50"});
        EXPECT_TRUE(WaitForListeners(*first, kAtOnce));
        EXPECT_GE(client.gestures().WaitFor(before + 5).size(), before + 5);
        first->Kill();

        const auto second = StartTouchsim({"-", "--die-after", "1"});
        EXPECT_TRUE(WaitForListeners(*second, kAtOnce));
        EXPECT_TRUE(client.Fence());
        const size_t of_first = client.gestures().lines().size();
        Touch(*second, TapLine(round));
        EXPECT_EQ(second->WaitExit(), ExitStatus{.signal = SIGKILL});
        EXPECT_EQ(client.gestures().WaitFor(of_first + 1).back(), TapHeard(round));
    }
    EXPECT_EQ(daemon->log().Count("Successfully registered listener for Panel ID: 1"), 10);
}

TEST(TouchService, HoldsNobodyElseUpWhileItIsStoppedInsideACall) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    size_t gestures = 0;
    for (const std::string where : {"info", "register"}) {
        SCOPED_TRACE(where);
        Helper service("StoppingTouchService", {where}, {.echo_log = false});
        ASSERT_TRUE(Eventually([&] { return ProcessState(service.pid()) == 'T'; }));

        const auto begin = steady_clock::now();
        Helper other("ClientProcess", {}, {.echo_log = false});
        EXPECT_EQ(other.Command("subscribe"), "done");
        for (int i = 0; i < 100; ++i)
            ASSERT_TRUE(client.Fence());
        other.process().Kill();
        EXPECT_LT(steady_clock::now() - begin, kAtOnce);

        ASSERT_TRUE(service.process().Continue());
        const int passes = where == "info" ? 1 : 2;
        EXPECT_TRUE(Eventually([&] {
            return daemon->log().Count("Successfully registered listener for Panel ID: 1") ==
                   passes;
        }));
        EXPECT_EQ(service.Command("send"), "send");
        gestures += 2;
        EXPECT_EQ(client.gestures().WaitFor(gestures).back(), "display 2 UNKNOWN");
    }
}

// With the interval that people have: every failed pass is followed by its full wait.
TEST(TouchService, IsAskedAgainEveryFiveSecondsUntilAPassSucceeds) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    {
        Helper dying("StoppingTouchService", {"register"}, {.echo_log = false});
        ASSERT_TRUE(Eventually([&] { return ProcessState(dying.pid()) == 'T'; }));
    }
    const auto death = steady_clock::now();
    const auto touchsim = StartTouchsim({"--fail-panel-info", "1", "--fail-register", "1:1"});
    ASSERT_TRUE(WaitForListeners(*touchsim));
    // Three waits, less what the observation may come late.
    EXPECT_GT(steady_clock::now() - death, seconds(14));
    EXPECT_EQ(daemon->log().Count("Failed to get panel info: no panel info today"), 1);
    EXPECT_EQ(daemon->log().Count("listener for Panel ID: 1, error: no listener today"), 1);
    EXPECT_EQ(daemon->log().Count("skelda: attempting registration..."), 4);
    Touch(*touchsim, TapLine(1));
    EXPECT_EQ(client.gestures().WaitFor(1).back(), TapHeard(1));
}

}  // namespace
}  // namespace velmora_test
