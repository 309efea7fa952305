// The payload of signal 2 for people and as JSON. Free functions, any thread.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>

#include <string>

#include "output.h"

namespace velmoractl {

using Engagement = ::aidl::vendor::quorin::velmora_hub::signals::UserEngagementPayload;

// Fields by their names; enumerators by theirs where they have one, else as numbers.
Json ToJson(const Engagement& payload);
std::string ToText(const Engagement& payload);

// Fields that are missing keep their defaults. Throws std::exception for what makes no payload.
void FromJson(const Json& json, Engagement* payload);

}  // namespace velmoractl
