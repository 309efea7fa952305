#include "touch_service.h"

#include <signal.h>

#include <algorithm>
#include <string>

#include "say.h"

namespace touchsim {

namespace {

using input::PanelID;
using input::PanelInfo;
using ndk::ScopedAStatus;

// What a fault on demand answers.
constexpr int32_t kFault = 1;

std::string NumberOf(PanelID panel) {
    return std::to_string(static_cast<int>(panel));
}

// A proxy is made anew for every call; the binder below stays the same.
auto IsSame(const TouchService::Listener& listener) {
    return [binder = listener->asBinder()](const TouchService::Listener& other) {
        return other->asBinder() == binder;
    };
}

}  // namespace

TouchService::TouchService(const Options& options)
        : panels_(options.panels),
          stop_register_(options.stop_register),
          stop_panel_info_(options.stop_panel_info),
          panel_info_failures_(options.fail_panel_info),
          register_failures_(options.fail_register) {}

ScopedAStatus TouchService::getPanelInfo(std::vector<PanelInfo>* out) {
    if (stop_panel_info_) raise(SIGSTOP);
    std::lock_guard lock(mutex_);
    if (panel_info_failures_ > 0) {
        --panel_info_failures_;
        Say("refused to tell of the panels");
        return ScopedAStatus::fromServiceSpecificErrorWithMessage(kFault, "no panel info today");
    }
    for (const auto& [panel, flags] : panels_) {
        PanelInfo info;
        info.panelId = static_cast<PanelID>(panel);
        info.supportedFlags = flags;
        out->push_back(info);
    }
    return ScopedAStatus::ok();
}

ScopedAStatus TouchService::registerListener(PanelID panelId, int32_t notificationFlags,
                                             const Listener& listener) {
    if (stop_register_ == static_cast<int8_t>(panelId)) raise(SIGSTOP);
    std::lock_guard lock(mutex_);
    if (int& failures = register_failures_[static_cast<int8_t>(panelId)]; failures > 0) {
        --failures;
        Say("refused a listener of panel " + NumberOf(panelId));
        return ScopedAStatus::fromServiceSpecificErrorWithMessage(kFault, "no listener today");
    }
    auto& listeners = listeners_[panelId];
    if (std::none_of(listeners.begin(), listeners.end(), IsSame(listener)))
        listeners.push_back(listener);
    Say("panel " + NumberOf(panelId) + " has a listener for flags " +
        std::to_string(notificationFlags));
    registered_.notify_all();
    return ScopedAStatus::ok();
}

ScopedAStatus TouchService::unregisterListener(PanelID panelId, const Listener& listener) {
    std::lock_guard lock(mutex_);
    auto& listeners = listeners_[panelId];
    listeners.erase(std::remove_if(listeners.begin(), listeners.end(), IsSame(listener)),
                    listeners.end());
    Say("a listener has left panel " + NumberOf(panelId));
    return ScopedAStatus::ok();
}

bool TouchService::EveryPanelHasListeners() {
    return std::all_of(panels_.begin(), panels_.end(), [this](const auto& panel) {
        return !listeners_[static_cast<PanelID>(panel.first)].empty();
    });
}

// The analysis cannot follow the wait's predicate.
void TouchService::WaitForListeners() NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex_);
    registered_.wait(lock, [this] { return EveryPanelHasListeners(); });
}

bool TouchService::Send(const input::SkeldaNotificationMsg& message) {
    std::vector<Listener> listeners;
    {
        std::lock_guard lock(mutex_);
        listeners = listeners_[message.panelId];
    }
    bool heard = false;
    for (const Listener& listener : listeners) {
        const ScopedAStatus status = listener->onNotificationReceived(message);
        if (status.isOk()) heard = true;
        if (status.getStatus() == STATUS_DEAD_OBJECT) unregisterListener(message.panelId, listener);
    }
    return heard;
}

}  // namespace touchsim
