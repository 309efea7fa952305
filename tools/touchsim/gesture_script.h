// Gestures as people write them, one JSON object to a line:
//
//     {"gesture": "tap", "type": "double", "position": [0.4, 0.7], "size": [0.05, 0.04]}
//     {"gesture": "scroll", "direction": "up", "position": [0.5, 0.5], "delay": 250}
//     {"gesture": "zoom", "type": "in", "points": [[0.4, 0.5], [0.6, 0.5], [0.3, 0.5], [0.7, 0.5]]}
//     {"raw": "0a02ff"}            a packet as it is, in hex
//     {"ear_cheek": 1}             a notification of another kind
//
// Fields that are left out, "panel" among them, are zero; "delay" is the pause before the gesture
// in milliseconds; "type" and "direction" may be numbers, known to the packets or not. Empty lines
// and lines that begin with # are skipped. Plain functions, any thread.

#pragma once

#include <aidl/com/quorin/input/SkeldaNotificationMsg.h>

#include <chrono>
#include <optional>
#include <string>

namespace touchsim {

struct Step {
    std::chrono::milliseconds delay{0};
    aidl::com::quorin::input::SkeldaNotificationMsg message;
};

// The line's step, nothing for a line without one. A line that cannot be read gives nothing and
// says why in `*error`, which is empty otherwise.
std::optional<Step> ParseStep(const std::string& line, std::string* error);

}  // namespace touchsim
