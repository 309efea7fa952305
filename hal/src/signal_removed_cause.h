// Why a signal went away, as the producer side tells the broker. Never crosses binder; the values
// line up with those of IVelmoraHubConsumer::SignalError.

#pragma once

#include <cstdint>

namespace aidl::vendor::quorin::velmora_hub {

enum class SignalRemovedCause : int32_t {
    UNKNOWN = 0,
    // The producer's own source failed.
    SOURCE_FAILED = 1,
    // Another producer took the signal over.
    REPLACED = 2,
    // The producer unregistered or its process died. The only cause that occurs today.
    UNREGISTERED = 3,
};

}  // namespace aidl::vendor::quorin::velmora_hub
