// The lines of watch and push: what one prints, the other reads. Free functions, any thread.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>

#include <optional>

#include "output.h"

namespace velmoractl {

using ::aidl::vendor::quorin::velmora_hub::VelmoraEvent;

// As it came over, or went out on, the signal; what the event itself says is told if it differs.
void PrintEvent(const Output& output, int32_t signal, const VelmoraEvent& event);

// Something else that happens to a signal: `kind` in JSON, `text` in words.
void PrintNotice(const Output& output, int32_t signal, const Json& notice, const std::string& text);

// An event of the signal; nothing if the line tells of something else. Throws std::exception with
// the reason if it cannot be read.
std::optional<VelmoraEvent> EventFromLine(const std::string& line, int32_t signal);

// An event of the signal, stamped with the time since the device was started.
VelmoraEvent NewEvent(int32_t signal);

}  // namespace velmoractl
