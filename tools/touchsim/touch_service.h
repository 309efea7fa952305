// The touch-input service: tells of its panels, keeps their listeners, and sends them what happens.
//
// Threads: binder threads call the interface, the script's thread the rest. A listener is called
// with no lock held.

#pragma once

#include <aidl/com/quorin/input/BnSkeldaNotificationService.h>
#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "options.h"

namespace touchsim {

namespace input = ::aidl::com::quorin::input;

class TouchService : public input::BnSkeldaNotificationService {
  public:
    using Listener = std::shared_ptr<input::ISkeldaNotificationListener>;

    explicit TouchService(const Options& options);

    ndk::ScopedAStatus getPanelInfo(std::vector<input::PanelInfo>* out) override;
    ndk::ScopedAStatus registerListener(input::PanelID panelId, int32_t notificationFlags,
                                        const Listener& listener) override;
    ndk::ScopedAStatus unregisterListener(input::PanelID panelId,
                                          const Listener& listener) override;

    // Returns when every panel has a listener.
    void WaitForListeners();

    // Calls every listener of the message's panel and waits for each; a dead one is forgotten.
    // False if none has heard it.
    bool Send(const input::SkeldaNotificationMsg& message);

  private:
    bool EveryPanelHasListeners() REQUIRES(mutex_);

    const std::vector<std::pair<int8_t, int64_t>> panels_;
    const std::optional<int8_t> stop_register_;
    const bool stop_panel_info_;
    std::mutex mutex_;
    std::condition_variable registered_;
    int panel_info_failures_ GUARDED_BY(mutex_);
    std::map<int8_t, int> register_failures_ GUARDED_BY(mutex_);
    std::map<input::PanelID, std::vector<Listener>> listeners_ GUARDED_BY(mutex_);
};

}  // namespace touchsim
