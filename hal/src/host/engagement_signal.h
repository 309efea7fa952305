// Signal 2's payload: made of a gesture, and written to the log. Plain functions, any thread.

#pragma once

#include <aidl/com/quorin/input/PanelID.h>
#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>
#include <touch_gesture.pb.h>

#include <cstdint>

namespace aidl::vendor::quorin::velmora_hub::host {

constexpr int32_t kEngagementSignalId = 2;

// Positions and sizes pass as the packet has them: nothing is clamped, ordered or checked.
signals::UserEngagementPayload MakeEngagement(const touch_gesture::TouchGesturePacket& packet,
                                              ::aidl::com::quorin::input::PanelID panel);

// At DEBUG, a line for each part.
void DumpEngagement(const signals::UserEngagementPayload& payload);

}  // namespace aidl::vendor::quorin::velmora_hub::host
