// Payloads of events for people and as JSON. Free functions, any thread.

#pragma once

#include <android/binder_parcelable_utils.h>

#include <string>

#include "output.h"

namespace velmoractl {

// {"type", "size", "value"} for a type that is known here, {"type", "size", "bytes"} for another
// one, null for none. Size is that of the holder's content, the type's name included.
Json PayloadToJson(const ndk::AParcelableHolder& payload);

// The same in words.
std::string PayloadToText(const ndk::AParcelableHolder& payload);

// The inverse of PayloadToJson; fields that are missing keep their defaults. A known type may be
// given by its last name. Throws std::exception for what makes no payload.
ndk::AParcelableHolder PayloadFromJson(const Json& json);

}  // namespace velmoractl
