// Tells a handler when a remote binder dies, with the token under which the binder was tracked.
//
// Threads: all functions may be called from any thread, and but for AwaitUnlinked with locks of the
// caller held; the lock of the table is taken last and released before anything is called or
// destroyed.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IToken.h>
#include <android/binder_ibinder.h>

#include <memory>

#include "death_handler.h"

namespace aidl::vendor::quorin::velmora_hub {

// What the platform is given to hold for one link.
struct DeathCookie {
    // Not owned; outlives the link, its last callback included.
    DeathHandler* handler;
    // Keeps the token alive as long as the link, or the table, needs it.
    std::shared_ptr<IToken> token;
    // The platform refused the link and will never call back. Guarded by the table's lock.
    bool refused = false;
};

class BinderDeathManager {
  public:
    BinderDeathManager() = delete;

    // Watches `binder`, which the caller keeps, for `handler` under `token`. Blocks on no process.
    // The caller owns the returned recipient and ends the link by deleting it.
    //
    // A link that is refused (a binder of this process, or one that is dead) is logged as a warning
    // and otherwise looks like any other: the recipient is returned, the handler is never called,
    // and the token stays referenced until it is tracked again.
    //
    // A token that is tracked again while an earlier link still stands gets the new link; the
    // earlier one goes on, may still report its own binder's death, and is ended by its own
    // recipient.
    static AIBinder_DeathRecipient* TrackDeath(AIBinder* binder,
                                               const std::shared_ptr<IToken>& token,
                                               DeathHandler* handler);

    // Returns when no callback of a link under `token` can come any more; its recipients have been
    // deleted before. For a handler that is about to go: deleting a recipient does not wait for a
    // death callback that has begun. Does not wait for the callback that the calling thread itself
    // is inside of. The caller holds no lock that its handler takes.
    static void AwaitUnlinked(const std::shared_ptr<IToken>& token);

    // The platform's callbacks; `cookie` is a DeathCookie.
    static void OnBinderDied(void* cookie);
    static void OnBinderUnlinked(void* cookie);
};

}  // namespace aidl::vendor::quorin::velmora_hub
