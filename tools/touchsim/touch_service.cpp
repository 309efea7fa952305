#include "touch_service.h"

#include <algorithm>
#include <iostream>

namespace touchsim {

namespace {

using input::PanelID;
using input::PanelInfo;
using ndk::ScopedAStatus;

// What a fault on demand answers.
constexpr int32_t kFault = 1;

int NumberOf(PanelID panel) {
    return static_cast<int>(panel);
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
          panel_info_failures_(options.fail_panel_info),
          register_failures_(options.fail_register) {}

ScopedAStatus TouchService::getPanelInfo(std::vector<PanelInfo>* out) {
    std::lock_guard lock(mutex_);
    if (panel_info_failures_ > 0) {
        --panel_info_failures_;
        std::cerr << "touchsim: refused to tell of the panels" << std::endl;
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
    std::lock_guard lock(mutex_);
    if (int& failures = register_failures_[static_cast<int8_t>(panelId)]; failures > 0) {
        --failures;
        std::cerr << "touchsim: refused a listener of panel " << NumberOf(panelId) << std::endl;
        return ScopedAStatus::fromServiceSpecificErrorWithMessage(kFault, "no listener today");
    }
    auto& listeners = listeners_[panelId];
    if (std::none_of(listeners.begin(), listeners.end(), IsSame(listener)))
        listeners.push_back(listener);
    std::cerr << "touchsim: panel " << NumberOf(panelId) << " has a listener for flags "
              << notificationFlags << std::endl;
    registered_.notify_all();
    return ScopedAStatus::ok();
}

ScopedAStatus TouchService::unregisterListener(PanelID panelId, const Listener& listener) {
    std::lock_guard lock(mutex_);
    auto& listeners = listeners_[panelId];
    listeners.erase(std::remove_if(listeners.begin(), listeners.end(), IsSame(listener)),
                    listeners.end());
    std::cerr << "touchsim: a listener has left panel " << NumberOf(panelId) << std::endl;
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
    bool all_answered = !listeners.empty();
    for (const Listener& listener : listeners) {
        const ScopedAStatus status = listener->onNotificationReceived(message);
        if (status.isOk()) continue;
        all_answered = false;
        if (status.getStatus() == STATUS_DEAD_OBJECT) unregisterListener(message.panelId, listener);
    }
    return all_answered;
}

}  // namespace touchsim
