// A producer that lives in the hub's own process.
//
// Threads: the host calls OnStart on its own thread; an implementation says which threads may call
// the rest.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IToken.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>
#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>

#include <memory>

namespace aidl::vendor::quorin::velmora_hub::host {

class IHostedProducer {
  public:
    virtual ~IHostedProducer() = default;

    // The signal that it publishes; never changes.
    virtual const SignalDescriptor& GetDescriptor() const = 0;

    // What it registers with the manager, to be called back.
    virtual std::shared_ptr<IVelmoraHubProducer> GetProducerInterface() = 0;

    // Registers with `manager` and starts producing. Once, until OnStop.
    virtual void OnStart(const std::shared_ptr<IVelmoraHubProducerManager>& manager) = 0;

    // Stops producing and unregisters.
    virtual void OnStop() = 0;

  protected:
    // Both are the implementation's to set, clear and guard.
    std::shared_ptr<IToken> registration_token_;
    std::shared_ptr<IVelmoraHubProducerManager> producer_manager_;
};

}  // namespace aidl::vendor::quorin::velmora_hub::host
