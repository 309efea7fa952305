#define LOG_TAG "velmora_producer_host"

#include "host/engagement_signal.h"

#include <android-base/logging.h>
#include <android/log.h>

#include <optional>
#include <utility>
#include <vector>

namespace aidl::vendor::quorin::velmora_hub::host {

namespace {

using ::aidl::com::quorin::input::PanelID;
using signals::EngagementRegion;
using signals::Evidence;
using signals::EvidenceSubType;
using signals::EvidenceType;
using signals::NormalizedRect;
using signals::TouchGestureKind;
using signals::UserEngagementPayload;
using touch_gesture::Point;
using touch_gesture::Size;
using touch_gesture::TouchGesturePacket;
using Rects = std::vector<std::optional<NormalizedRect>>;

// What a touch leaves no doubt about.
constexpr float kCertain = 1.0f;

// The first kind plus the value's place in 1..count; UNKNOWN beyond, negative values included.
TouchGestureKind KindFrom(TouchGestureKind first, int value, uint32_t count) {
    const uint32_t place = static_cast<uint32_t>(value) - 1;
    if (place >= count) return TouchGestureKind::UNKNOWN;
    return static_cast<TouchGestureKind>(static_cast<uint32_t>(first) + place);
}

TouchGestureKind KindOf(const TouchGesturePacket& packet) {
    switch (packet.gesture_case()) {
        case TouchGesturePacket::kTouchDown:
            return TouchGestureKind::TOUCH_DOWN;
        case TouchGesturePacket::kTapGesture:
            return KindFrom(TouchGestureKind::SINGLE_TAP, packet.tap_gesture().tap_type(), 3);
        case TouchGesturePacket::kScrollGesture:
            return KindFrom(TouchGestureKind::SCROLL_UP, packet.scroll_gesture().direction(), 4);
        case TouchGesturePacket::kZoomGesture:
            return KindFrom(TouchGestureKind::ZOOM_IN, packet.zoom_gesture().zoom_type(), 2);
        case TouchGesturePacket::GESTURE_NOT_SET:
            break;
    }
    return TouchGestureKind::UNKNOWN;
}

NormalizedRect RectOf(const Point& position, const Size& size) {
    NormalizedRect rect;
    rect.left = static_cast<float>(position.x());
    rect.top = static_cast<float>(position.y());
    // Added as doubles: the sum of two floats would be rounded twice.
    rect.right = static_cast<float>(position.x() + size.width());
    rect.bottom = static_cast<float>(position.y() + size.height());
    return rect;
}

NormalizedRect RectOf(const Point& point) {
    NormalizedRect rect;
    rect.left = rect.right = static_cast<float>(point.x());
    rect.top = rect.bottom = static_cast<float>(point.y());
    return rect;
}

Rects RectsOf(const TouchGesturePacket& packet) {
    switch (packet.gesture_case()) {
        case TouchGesturePacket::kTouchDown:
            return {RectOf(packet.touch_down().position(), packet.touch_down().size())};
        case TouchGesturePacket::kTapGesture:
            return {RectOf(packet.tap_gesture().position(), packet.tap_gesture().size())};
        case TouchGesturePacket::kScrollGesture:
            return {RectOf(packet.scroll_gesture().position(), packet.scroll_gesture().size())};
        case TouchGesturePacket::kZoomGesture: {
            const auto& zoom = packet.zoom_gesture();
            return {RectOf(zoom.point1()), RectOf(zoom.point2()), RectOf(zoom.point3()),
                    RectOf(zoom.point4())};
        }
        case TouchGesturePacket::GESTURE_NOT_SET:
            break;
    }
    return {};
}

int32_t DisplayOf(PanelID panel) {
    switch (panel) {
        case PanelID::PRIMARY:
            return 1;
        case PanelID::SECONDARY:
            return 2;
    }
    return 0;
}

void DumpRegion(const EngagementRegion& region) {
    if (!region.rects) LOG(DEBUG) << "    Rect: <none>";
    for (size_t i = 0; region.rects && i < region.rects->size(); ++i) {
        const NormalizedRect rect = (*region.rects)[i].value_or(NormalizedRect());
        LOG(DEBUG) << "    Rect[" << i << "]: (left: " << rect.left << ", top: " << rect.top
                   << ", right: " << rect.right << ", bottom: " << rect.bottom << ")";
    }
    for (size_t i = 0; i < region.evidence.size(); ++i) {
        const Evidence& evidence = region.evidence[i];
        LOG(DEBUG) << "    Evidence[" << i << "]: type: " << static_cast<int32_t>(evidence.type)
                   << ", weight: " << evidence.weight;
        if (evidence.sub_type.getTag() == EvidenceSubType::Tag::touch_gesture)
            LOG(DEBUG) << "      sub_type (touch_gesture): "
                       << static_cast<int32_t>(
                                  evidence.sub_type.get<EvidenceSubType::Tag::touch_gesture>());
    }
}

}  // namespace

UserEngagementPayload MakeEngagement(const TouchGesturePacket& packet, PanelID panel) {
    Evidence evidence;
    evidence.type = EvidenceType::TOUCH_GESTURE;
    evidence.weight = kCertain;
    evidence.sub_type.set<EvidenceSubType::Tag::touch_gesture>(KindOf(packet));

    EngagementRegion region;
    if (Rects rects = RectsOf(packet); !rects.empty()) region.rects = std::move(rects);
    region.confidence = kCertain;
    region.evidence.push_back(evidence);

    UserEngagementPayload payload;
    payload.overall_confidence = kCertain;
    payload.regions.push_back(std::move(region));
    payload.display = DisplayOf(panel);
    return payload;
}

void DumpEngagement(const UserEngagementPayload& payload) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "=== UserEngagementPayload ===");
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "  overall_confidence: %.2f",
                        static_cast<double>(payload.overall_confidence));
    for (size_t i = 0; i < payload.regions.size(); ++i) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "  EngagementRegion[%zu]: confidence: %.2f",
                            i, static_cast<double>(payload.regions[i].confidence));
        DumpRegion(payload.regions[i]);
    }
    LOG(DEBUG) << "=============================";
}

}  // namespace aidl::vendor::quorin::velmora_hub::host
