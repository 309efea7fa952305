// Who wants to hear of the death of a remote binder; see binder_death_manager.h.
//
// Threads: called on binder threads, for several links at once, with no lock of the tracking or of
// the platform held.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IToken.h>

#include <memory>

namespace aidl::vendor::quorin::velmora_hub {

class DeathHandler {
  public:
    virtual ~DeathHandler() = default;

    // The binder that was tracked under `token` has died. The handler may end the link from in
    // here: the token lives until the call has returned, whatever the handler frees.
    virtual void HandleBinderDeath(const std::shared_ptr<IToken>& token) = 0;
};

}  // namespace aidl::vendor::quorin::velmora_hub
