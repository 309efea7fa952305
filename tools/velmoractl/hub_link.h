// The way to the hub. Free functions of any thread, unless they say otherwise.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>

#include <functional>
#include <memory>
#include <optional>

#include "output.h"
#include "signal_table.h"

namespace velmoractl {

namespace hub = ::aidl::vendor::quorin::velmora_hub;

struct Hub {
    std::shared_ptr<hub::IVelmoraHubProducerManager> producers;
    std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers;
};

// The hub that is published now, either manager null if it is not. Waits for the service manager.
Hub FindHub();

// Waits until the hub is published, and says so if it has to. Null managers: it cannot be had, the
// reason was said.
Hub WaitForHub(const Output& output);

// The managers' tables; empty if the hub is gone, which its DeathWatch tells.
SignalTable ProducersOf(const Hub& hub);
SignalTable ConsumersOf(const Hub& hub);

// Calls once when the hub dies, on a thread of the platform; never after it was destroyed, unless
// the call had begun: it must not use what dies before.
class DeathWatch {
  public:
    DeathWatch(const Hub& hub, std::function<void()> on_death);

    // False: the hub was dead already, and there will be no call.
    bool alive() const { return alive_; }

  private:
    ndk::ScopedAIBinder_DeathRecipient recipient_;
    bool alive_;
};

}  // namespace velmoractl
