// Producer and consumer of 256-byte events, of the hub or of the bare relay, as users of either
// would write them: through the public interfaces, the bytes in the event's payload.
//
// A process calls UseFolder first. Failures that leave nothing to measure are told by `error`,
// never by abort.

#pragma once

#include <aidl/velmora/peers/events/Bytes.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace peers {

namespace hub = aidl::vendor::quorin::velmora_hub;

enum class Broker { kHub, kRelay };

// The service of the broker that is there last: once it is published, clients can connect.
std::string ServiceName(Broker broker);

// Sends one event and waits for its acknowledgement. Any thread.
using Push = std::function<::ndk::ScopedAStatus(const hub::VelmoraEvent&)>;

// Registers as the producer of the signal; waits, for up to 5 s, until the hub has noticed the end
// of the one before. Null if that fails, with the reason in `*error`. Starts the thread pool.
Push ConnectProducer(Broker broker, int32_t signal, std::string* error);

// One event that is filled anew for each push. One thread at a time.
class Message {
  public:
    explicit Message(int32_t signal) { event_.signalId = signal; }

    // The event with a copy of these bytes, until the next call.
    const hub::VelmoraEvent& Fill(const void* data, size_t size);

  private:
    aidl::velmora::peers::events::Bytes bytes_;
    hub::VelmoraEvent event_;
};

// Called for every event, one at a time, on a thread of the pool; the bytes are lent.
using OnBytes = std::function<void(const uint8_t* data, size_t size)>;

// Subscribes. Null if that fails, with the reason in `*error`; the subscription lives as long as
// the process. Starts the thread pool.
std::shared_ptr<hub::IVelmoraHubConsumer> Subscribe(Broker broker, int32_t signal, OnBytes on_bytes,
                                                    std::string* error);

}  // namespace peers
