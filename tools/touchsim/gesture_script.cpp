#include "gesture_script.h"

#include <touch_gesture.pb.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <vector>

namespace touchsim {

namespace {

using aidl::com::quorin::input::PanelID;
using aidl::com::quorin::input::SkeldaNotification;
using nlohmann::json;

constexpr double kLongestDelayMs = 24 * 3600 * 1000.0;

// What the script says, without its control characters.
std::string Quoted(const std::string& text) {
    return json(text).dump(-1, ' ', true);
}

// What the fields of one line say. The first thing that is wrong with them stays.
class Fields {
  public:
    explicit Fields(const json& object) : object_(object) {}

    const std::string& error() const { return error_; }
    void Fail(const std::string& what) {
        if (error_.empty()) error_ = what;
    }
    bool Has(const char* name) const { return object_.contains(name); }

    // Zero if it is not there.
    double Number(const char* name, double least, double most) {
        const json* field = Find(name);
        if (field == nullptr) return 0;
        const double value = field->is_number() ? field->get<double>() : std::nan("");
        if (value >= least && value <= most) return value;
        Fail(std::string(name) + ": a number from " + std::to_string(static_cast<int64_t>(least)) +
             " to " + std::to_string(static_cast<int64_t>(most)) + " is wanted");
        return 0;
    }
    int64_t Integer(const char* name, int64_t least, int64_t most) {
        const double value = Number(name, static_cast<double>(least), static_cast<double>(most));
        if (value == std::floor(value)) return static_cast<int64_t>(value);
        Fail(std::string(name) + ": a whole number is wanted");
        return 0;
    }
    // A name's place in the list, counted from 1, or any number of an open enumeration.
    int Choice(const char* name, const std::vector<std::string>& names) {
        const json* field = Find(name);
        if (field == nullptr || !field->is_string())
            return static_cast<int>(Integer(name, std::numeric_limits<int32_t>::min(),
                                            std::numeric_limits<int32_t>::max()));
        const auto text = field->get<std::string>();
        std::string known;
        for (size_t i = 0; i < names.size(); ++i) {
            if (names[i] == text) return static_cast<int>(i) + 1;
            known += (i == 0 ? "" : ", ") + names[i];
        }
        Fail(std::string(name) + ": " + Quoted(text) + " is none of " + known);
        return 0;
    }
    std::string Text(const char* name) {
        const json* field = Find(name);
        if (field != nullptr && field->is_string()) return field->get<std::string>();
        Fail(std::string(name) + ": a text is wanted");
        return "";
    }
    // Nothing if it is not there: the packet has no such part either.
    std::optional<std::array<double, 2>> Pair(const char* name) {
        const json* field = Find(name);
        return field == nullptr ? std::nullopt : AsPair(*field, name);
    }
    std::vector<std::array<double, 2>> Pairs(const char* name) {
        std::vector<std::array<double, 2>> pairs;
        const json* field = Find(name);
        if (field == nullptr) return pairs;
        if (!field->is_array() || field->size() > 4) Fail(std::string(name) + ": up to four pairs");
        if (field->is_array())
            for (const json& item : *field)
                pairs.push_back(AsPair(item, name).value_or(std::array<double, 2>{}));
        return pairs;
    }
    // A field that nobody asked for is a slip of the pen.
    void RefuseOthers() {
        for (const auto& item : object_.items())
            if (asked_.count(item.key()) == 0) Fail(Quoted(item.key()) + " does not belong here");
    }

  private:
    const json* Find(const char* name) {
        asked_.insert(name);
        const auto found = object_.find(name);
        return found == object_.end() ? nullptr : &*found;
    }
    std::optional<std::array<double, 2>> AsPair(const json& value, const char* name) {
        if (value.is_array() && value.size() == 2 && value[0].is_number() && value[1].is_number())
            return std::array<double, 2>{value[0].get<double>(), value[1].get<double>()};
        Fail(std::string(name) + ": a pair of numbers is wanted, [0.25, 0.5] for instance");
        return std::nullopt;
    }

    const json& object_;
    std::set<std::string> asked_;
    std::string error_;
};

// Position and size, which three of the gestures have.
template <typename Gesture>
Gesture* WithPlace(Gesture* gesture, Fields& fields) {
    if (const auto position = fields.Pair("position")) {
        gesture->mutable_position()->set_x((*position)[0]);
        gesture->mutable_position()->set_y((*position)[1]);
    }
    if (const auto size = fields.Pair("size")) {
        gesture->mutable_size()->set_width((*size)[0]);
        gesture->mutable_size()->set_height((*size)[1]);
    }
    return gesture;
}

void FillZoom(touch_gesture::ZoomGesture* zoom, Fields& fields) {
    using touch_gesture::ZoomType;
    zoom->set_zoom_type(static_cast<ZoomType>(fields.Choice("type", {"in", "out"})));
    const auto points = fields.Pairs("points");
    touch_gesture::Point* (touch_gesture::ZoomGesture::*const part[])() = {
            &touch_gesture::ZoomGesture::mutable_point1,
            &touch_gesture::ZoomGesture::mutable_point2,
            &touch_gesture::ZoomGesture::mutable_point3,
            &touch_gesture::ZoomGesture::mutable_point4};
    for (size_t i = 0; i < points.size() && i < std::size(part); ++i) {
        touch_gesture::Point* point = (zoom->*part[i])();
        point->set_x(points[i][0]);
        point->set_y(points[i][1]);
    }
}

std::vector<uint8_t> EncodeGesture(Fields& fields) {
    using touch_gesture::ScrollDirection;
    using touch_gesture::TapType;
    touch_gesture::TouchGesturePacket packet;
    const std::string kind = fields.Text("gesture");
    if (kind == "touch_down") {
        WithPlace(packet.mutable_touch_down(), fields);
    } else if (kind == "tap") {
        const int type = fields.Choice("type", {"single", "double", "long"});
        WithPlace(packet.mutable_tap_gesture(), fields)->set_tap_type(static_cast<TapType>(type));
    } else if (kind == "scroll") {
        const int direction = fields.Choice("direction", {"up", "down", "left", "right"});
        WithPlace(packet.mutable_scroll_gesture(), fields)
                ->set_direction(static_cast<ScrollDirection>(direction));
    } else if (kind == "zoom") {
        FillZoom(packet.mutable_zoom_gesture(), fields);
    } else {
        fields.Fail("gesture: " + Quoted(kind) + " is none of touch_down, tap, scroll, zoom");
    }
    const std::string bytes = packet.SerializeAsString();
    return {bytes.begin(), bytes.end()};
}

std::vector<uint8_t> DecodeHex(Fields& fields) {
    const std::string text = fields.Text("raw");
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    if (text.size() % 2 != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        fields.Fail("raw: pairs of hexadecimal digits are wanted");
    return bytes;
}

}  // namespace

std::optional<Step> ParseStep(const std::string& line, std::string* error) {
    error->clear();
    const size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') return std::nullopt;
    const json object = json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!object.is_object()) {
        *error = "not a JSON object";
        return std::nullopt;
    }
    Fields fields(object);
    Step step;
    step.message.panelId = static_cast<PanelID>(fields.Integer("panel", -128, 127));
    step.delay = std::chrono::milliseconds(
            static_cast<int64_t>(fields.Number("delay", 0, kLongestDelayMs)));
    auto& notification = step.message.notification;
    if (fields.Has("raw"))
        notification.set<SkeldaNotification::Tag::touchGesturePacket>(DecodeHex(fields));
    else if (fields.Has("ear_cheek"))
        notification.set<SkeldaNotification::Tag::earCheek>(
                static_cast<int8_t>(fields.Integer("ear_cheek", -128, 127)));
    else
        notification.set<SkeldaNotification::Tag::touchGesturePacket>(EncodeGesture(fields));
    fields.RefuseOthers();
    *error = fields.error();
    if (!error->empty()) return std::nullopt;
    return step;
}

}  // namespace touchsim
