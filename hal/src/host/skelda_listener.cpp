#define LOG_TAG "velmora_producer_host"

#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>
#include <android-base/logging.h>
#include <android/log.h>
#include <time.h>

#include <limits>

#include "host/engagement_signal.h"
#include "host/skelda_producer.h"

namespace aidl::vendor::quorin::velmora_hub::host {

namespace {

using ::aidl::com::quorin::input::PanelID;
using ::aidl::com::quorin::input::SkeldaNotification;
using ::ndk::ScopedAStatus;
using touch_gesture::TouchGesturePacket;

// Milliseconds since the device was started, sleep included.
int64_t TimeSinceBoot() {
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void LogGesture(const TouchGesturePacket& packet) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "Received::TouchGesture Start");
    switch (packet.gesture_case()) {
        case TouchGesturePacket::kTouchDown:
            LOG(DEBUG) << ">> TouchDown: " << packet.touch_down().DebugString();
            break;
        case TouchGesturePacket::kTapGesture:
            LOG(DEBUG) << ">> TapGesture: " << packet.tap_gesture().DebugString();
            break;
        case TouchGesturePacket::kScrollGesture:
            LOG(DEBUG) << ">> ScrollGesture: " << packet.scroll_gesture().DebugString();
            break;
        case TouchGesturePacket::kZoomGesture:
            LOG(DEBUG) << ">> ZoomGesture: " << packet.zoom_gesture().DebugString();
            break;
        default:
            LOG(DEBUG) << "Received unhandled gesture type: "
                       << static_cast<int>(packet.gesture_case());
    }
    LOG(DEBUG) << "Received::TouchGesture End";
}

// Bytes that hold no packet make an event all the same, with an empty payload.
VelmoraEvent MakeEvent(const std::vector<uint8_t>& bytes, PanelID panel) {
    VelmoraEvent event;
    event.signalId = kEngagementSignalId;
    event.timestampMs = TimeSinceBoot();
    signals::UserEngagementPayload payload;
    if (const auto packet = DeserializeBytesToGesturePacket(bytes))
        payload = MakeEngagement(*packet, panel);
    DumpEngagement(payload);
    event.payload.setParcelable(payload);
    return event;
}

}  // namespace

std::optional<TouchGesturePacket> DeserializeBytesToGesturePacket(
        const std::vector<uint8_t>& bytes) {
    TouchGesturePacket packet;
    // The parser takes the length as an int; longer bytes are none that it can read.
    const bool fits = bytes.size() <= static_cast<size_t>(std::numeric_limits<int>::max());
    if (fits && packet.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return packet;
    LOG(ERROR) << "Failed to parse bytes to proto message";
    return std::nullopt;
}

ScopedAStatus SkeldaProducer::ListenerImpl::onNotificationReceived(const Message& msg) {
    const std::shared_ptr<SkeldaProducer> producer = producer_.lock();
    if (producer == nullptr) return ScopedAStatus::ok();
    LOG(DEBUG) << "skelda: >> PanelID : " << static_cast<int>(msg.panelId);
    switch (msg.notification.getTag()) {
        case SkeldaNotification::Tag::earCheek:
            LOG(DEBUG) << "skelda: >> EarCheek : "
                       << static_cast<int>(
                                  msg.notification.get<SkeldaNotification::Tag::earCheek>());
            break;
        case SkeldaNotification::Tag::touchGesturePacket:
            producer->PushGesture(
                    msg.notification.get<SkeldaNotification::Tag::touchGesturePacket>(),
                    msg.panelId);
            break;
        default:
            LOG(DEBUG) << "skelda: Received notification with tag: "
                       << static_cast<int>(msg.notification.getTag());
    }
    return ScopedAStatus::ok();
}

ScopedAStatus SkeldaProducer::ListenerImpl::onHandleNotification(const Message& /*msg*/,
                                                                 bool* out) {
    *out = false;
    return ScopedAStatus::ok();
}

void SkeldaProducer::PushGesture(const std::vector<uint8_t>& bytes, PanelID panel) {
    // Decoded for the log, and once more for the event: a gesture is logged also when nobody can
    // be told of it, and bytes that hold none are reported each time that they are wanted.
    if (const auto packet = DeserializeBytesToGesturePacket(bytes)) LogGesture(*packet);
    const Link link = GetLink();
    if (link.manager == nullptr || link.token == nullptr) {
        LOG(WARNING) << "skelda: Not registered, cannot send event to manager.";
        return;
    }
    const VelmoraEvent event = MakeEvent(bytes, panel);
    if (!link.has_clients) return;
    LOG(INFO) << "skelda: client connected, sending event to manager: " << event.signalId;
    link.manager->updateSignal(link.token, event);
}

}  // namespace aidl::vendor::quorin::velmora_hub::host
