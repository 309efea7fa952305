#include "engagement_codec.h"

#include <android/binder_enums.h>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <vector>

#include "json_field.h"

namespace velmoractl {

namespace {

namespace signals = ::aidl::vendor::quorin::velmora_hub::signals;
using signals::EngagementRegion;
using signals::Evidence;
using signals::EvidenceSubType;
using signals::NormalizedRect;
using Gesture = signals::TouchGestureKind;
using GestureTag =
        std::integral_constant<EvidenceSubType::Tag, EvidenceSubType::Tag::touch_gesture>;

template <typename Enum>
Json EnumToJson(Enum value) {
    for (const Enum known : ndk::enum_range<Enum>())
        if (known == value) return toString(value);
    return static_cast<int32_t>(value);
}

template <typename Enum>
Enum EnumFromJson(const Json& json) {
    if (!json.is_string()) return static_cast<Enum>(IntegerFrom<int32_t>(json, "enumerator"));
    for (const Enum known : ndk::enum_range<Enum>())
        if (toString(known) == json.get<std::string>()) return known;
    throw std::invalid_argument("no such enumerator: " + OneLine(json));
}

Json ToJson(const std::optional<NormalizedRect>& rect) {
    if (!rect) return nullptr;
    return {{"left", rect->left},
            {"top", rect->top},
            {"right", rect->right},
            {"bottom", rect->bottom}};
}

Json ToJson(const Evidence& evidence) {
    Json json = {{"type", EnumToJson(evidence.type)}, {"weight", evidence.weight}};
    if (evidence.sub_type.getTag() == GestureTag::value)
        json["touch_gesture"] = EnumToJson(evidence.sub_type.get<GestureTag::value>());
    return json;
}

Json ToJson(const EngagementRegion& region);

template <typename Elements>
Json ListToJson(const Elements& elements) {
    Json list = Json::array();
    for (const auto& element : elements)
        list.push_back(ToJson(element));
    return list;
}

Json ToJson(const EngagementRegion& region) {
    return {{"rects", region.rects ? ListToJson(*region.rects) : Json()},
            {"confidence", region.confidence},
            {"evidence", ListToJson(region.evidence)}};
}

std::optional<NormalizedRect> RectFromJson(const Json& json) {
    if (json.is_null()) return std::nullopt;
    NormalizedRect rect;
    RefuseOthers(json, {"left", "top", "right", "bottom"});
    ReadField(json, "left", &rect.left);
    ReadField(json, "top", &rect.top);
    ReadField(json, "right", &rect.right);
    ReadField(json, "bottom", &rect.bottom);
    return rect;
}

Evidence EvidenceFromJson(const Json& json) {
    Evidence evidence;
    RefuseOthers(json, {"weight", "type", "touch_gesture"});
    ReadField(json, "weight", &evidence.weight);
    if (json.contains("type"))
        evidence.type = EnumFromJson<decltype(evidence.type)>(json.at("type"));
    if (json.contains("touch_gesture"))
        evidence.sub_type.set<GestureTag::value>(EnumFromJson<Gesture>(json.at("touch_gesture")));
    return evidence;
}

// The field's elements, none if there is no such field. An object has values, too, but no order.
Json ListField(const Json& object, const char* name) {
    const Json list = object.value(name, Json::array());
    if (list.is_array()) return list;
    throw std::invalid_argument(std::string(name) + ": a list is wanted");
}

EngagementRegion RegionFromJson(const Json& json) {
    EngagementRegion region;
    RefuseOthers(json, {"confidence", "rects", "evidence"});
    ReadField(json, "confidence", &region.confidence);
    if (json.contains("rects") && !json.at("rects").is_null()) {
        region.rects.emplace();
        for (const Json& rect : ListField(json, "rects"))
            region.rects->push_back(RectFromJson(rect));
    }
    for (const Json& evidence : ListField(json, "evidence"))
        region.evidence.push_back(EvidenceFromJson(evidence));
    return region;
}

// "SINGLE_TAP at (0.25, 0.5 - 0.3, 0.55)"
std::string ToText(const EngagementRegion& region) {
    std::string text;
    for (const Evidence& evidence : region.evidence) {
        if (!text.empty()) text += "+";
        text += toString(evidence.sub_type.get<GestureTag::value>());
    }
    if (text.empty()) text = "no evidence";
    for (const auto& rect : region.rects.value_or(std::vector<std::optional<NormalizedRect>>())) {
        char place[128] = " at nowhere";
        if (rect) {
            std::snprintf(place, sizeof(place), " at (%.4g, %.4g - %.4g, %.4g)", rect->left,
                          rect->top, rect->right, rect->bottom);
        }
        text += place;
    }
    return text;
}

}  // namespace

Json ToJson(const Engagement& payload) {
    return {{"overall_confidence", payload.overall_confidence},
            {"regions", ListToJson(payload.regions)},
            {"display", payload.display}};
}

std::string ToText(const Engagement& payload) {
    std::string text = "display " + std::to_string(payload.display);
    for (const EngagementRegion& region : payload.regions)
        text += ", " + ToText(region);
    char confidence[64];
    std::snprintf(confidence, sizeof(confidence), ", confidence %.4g", payload.overall_confidence);
    return text + confidence;
}

void FromJson(const Json& json, Engagement* payload) {
    RefuseOthers(json, {"overall_confidence", "regions", "display"});
    ReadField(json, "overall_confidence", &payload->overall_confidence);
    for (const Json& region : ListField(json, "regions"))
        payload->regions.push_back(RegionFromJson(region));
    ReadField(json, "display", &payload->display);
}

}  // namespace velmoractl
