// What the tests of the hosted producers are written with: a hub and a touch service of this
// process that write down how they are called, and gestures. Functions may be called from any
// thread unless they say otherwise.

#pragma once

#include <aidl/com/quorin/input/BnSkeldaNotificationService.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducerManager.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/skelda_producer.h"
#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {

namespace input = ::aidl::com::quorin::input;
using ::host::testing::LogCapture;
using hub::host::SkeldaProducer;
using ::ndk::ScopedAStatus;

inline ScopedAStatus Failure(const char* message) {
    return ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, message);
}

// Writes "hub: register SIGNAL" and "hub: unregister", and keeps events.
class FakeManager : public hub::BnVelmoraHubProducerManager {
  public:
    struct Update {
        std::shared_ptr<hub::IToken> token;
        hub::VelmoraEvent event;
    };

    // Registrations are refused with the text, unless it is empty.
    explicit FakeManager(std::shared_ptr<Record> record, std::string refusal = "")
            : record_(std::move(record)), refusal_(std::move(refusal)) {}

    // Called inside each update; set before the first.
    std::function<void()> on_update;

    ScopedAStatus registerProducer(const hub::SignalDescriptor& descriptor,
                                   const std::shared_ptr<hub::IVelmoraHubProducer>& /*producer*/,
                                   std::shared_ptr<hub::IToken>* out) override {
        record_->Add("hub: register " + std::to_string(descriptor.signalId));
        if (!refusal_.empty()) return Failure(refusal_.c_str());
        *out = ::ndk::SharedRefBase::make<TestToken>();
        return ScopedAStatus::ok();
    }
    ScopedAStatus updateSignal(const std::shared_ptr<hub::IToken>& token,
                               const hub::VelmoraEvent& event) override {
        if (on_update) on_update();
        std::lock_guard lock(mutex_);
        updates_.push_back({token, event});
        return Failure("not looked at");
    }
    ScopedAStatus unregisterProducer(const std::shared_ptr<hub::IToken>& token) override {
        record_->Add(token == nullptr ? "hub: unregister null" : "hub: unregister");
        return Failure("not looked at");
    }

    // The updates since the last call.
    std::vector<Update> Take() {
        std::lock_guard lock(mutex_);
        return std::exchange(updates_, {});
    }

  private:
    const std::shared_ptr<Record> record_;
    const std::string refusal_;
    std::mutex mutex_;
    std::vector<Update> updates_ GUARDED_BY(mutex_);
};

// The name under which the touch service is declared.
inline std::string TouchServiceName() {
    return std::string(input::ISkeldaNotificationService::descriptor) + "/default";
}

inline void PublishAsTouchService(const ::ndk::SpAIBinder& binder) {
    EXPECT_EQ(AServiceManager_addService(binder.get(), TouchServiceName().c_str()), EX_NONE);
}

// Writes "panels", "register PANEL FLAGS LISTENER" and "unregister PANEL LISTENER", the listeners
// numbered as they come. Its calls come from one thread at a time.
class FakeTouchService : public input::BnSkeldaNotificationService {
  public:
    using Listener = std::shared_ptr<input::ISkeldaNotificationListener>;
    // What a call answers: called inside it with its line and the number of "panels" so far.
    using Script = std::function<ScopedAStatus(const std::string& line, int pass)>;

    explicit FakeTouchService(std::shared_ptr<Record> record, Script script = {})
            : record_(std::move(record)), script_(std::move(script)) {}
    ~FakeTouchService() override {
        if (on_destroy) on_destroy();
    }

    // All three are set before the service is published, or inside its calls. `as_binder` is called
    // whenever the producer asks for the binder, and gives another one unless it gives null.
    std::function<::ndk::SpAIBinder()> as_binder;
    std::function<void()> on_destroy;
    std::vector<int> panels = {1, 0};

    // In place of any other of this process.
    void Publish() { PublishAsTouchService(BnSkeldaNotificationService::asBinder()); }

    // By its number; not while a call runs on another thread.
    const Listener& listener(size_t number) const { return listeners_.at(number); }

    ::ndk::SpAIBinder asBinder() override {
        ::ndk::SpAIBinder binder = as_binder ? as_binder() : ::ndk::SpAIBinder();
        return binder.get() != nullptr ? binder : BnSkeldaNotificationService::asBinder();
    }
    ScopedAStatus getPanelInfo(std::vector<input::PanelInfo>* out) override {
        ++passes_;
        ScopedAStatus status = Answer("panels");
        for (const int panel : panels) {
            out->emplace_back();
            out->back().panelId = static_cast<input::PanelID>(panel);
            out->back().supportedFlags = panel == 0 ? 7 : -1;
        }
        return status;
    }
    ScopedAStatus registerListener(input::PanelID panel, int32_t flags,
                                   const Listener& listener) override {
        return Answer("register " + std::to_string(static_cast<int>(panel)) + " " +
                      std::to_string(flags) + Number(listener));
    }
    ScopedAStatus unregisterListener(input::PanelID panel, const Listener& listener) override {
        return Answer("unregister " + std::to_string(static_cast<int>(panel)) + Number(listener));
    }

  private:
    // The script first: who sees the line finds done what it does.
    ScopedAStatus Answer(const std::string& line) {
        ScopedAStatus status = script_ ? script_(line, passes_) : ScopedAStatus::ok();
        record_->Add(line);
        return status;
    }
    std::string Number(const Listener& listener) {
        auto known = std::find(listeners_.begin(), listeners_.end(), listener);
        if (known == listeners_.end()) known = listeners_.insert(known, listener);
        return " #" + std::to_string(known - listeners_.begin());
    }

    const std::shared_ptr<Record> record_;
    const Script script_;
    int passes_ = 0;
    std::vector<Listener> listeners_;
};

// A producer that is registered from the start, without a thread.
class RegisteredProducer : public SkeldaProducer {
  public:
    RegisteredProducer(std::shared_ptr<hub::IVelmoraHubProducerManager> manager,
                       std::shared_ptr<hub::IToken> token) {
        producer_manager_ = std::move(manager);
        registration_token_ = std::move(token);
    }
};

enum class Kind { kNone, kTouchDown, kTap, kScroll, kZoom };

// The numbers are the position's x and y and the size's width and height, or the coordinates of a
// zoom's points 1 and 4; all are absent if they are not given.
inline touch_gesture::TouchGesturePacket Gesture(
        Kind kind, int type = 0, const std::optional<std::array<double, 4>>& numbers = {}) {
    touch_gesture::TouchGesturePacket packet;
    const auto set_point = [&](touch_gesture::Point* point, size_t first) {
        point->set_int_x(-5);
        point->set_x((*numbers)[first]);
        point->set_y((*numbers)[first + 1]);
    };
    const auto place = [&](auto* gesture) {
        if (numbers) set_point(gesture->mutable_position(), 0);
        if (numbers) gesture->mutable_size()->set_width((*numbers)[2]);
        if (numbers) gesture->mutable_size()->set_height((*numbers)[3]);
        return gesture;
    };
    if (kind == Kind::kTouchDown) place(packet.mutable_touch_down());
    if (kind == Kind::kTap)
        place(packet.mutable_tap_gesture())
                ->set_tap_type(static_cast<touch_gesture::TapType>(type));
    if (kind == Kind::kScroll)
        place(packet.mutable_scroll_gesture())
                ->set_direction(static_cast<touch_gesture::ScrollDirection>(type));
    if (kind != Kind::kZoom) return packet;
    auto* zoom = packet.mutable_zoom_gesture();
    zoom->set_zoom_type(static_cast<touch_gesture::ZoomType>(type));
    if (numbers) set_point(zoom->mutable_point1(), 0);
    if (numbers) set_point(zoom->mutable_point4(), 2);
    return packet;
}

inline input::SkeldaNotificationMsg Notification(const std::string& bytes, int panel = 0) {
    input::SkeldaNotificationMsg msg;
    msg.panelId = static_cast<input::PanelID>(panel);
    msg.notification.set<input::SkeldaNotification::Tag::touchGesturePacket>(bytes.begin(),
                                                                             bytes.end());
    return msg;
}

}  // namespace velmora_test
