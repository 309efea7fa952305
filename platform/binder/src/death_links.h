// Death links: who hears of the death of which remote object. One lock for all of them, under which
// nothing is called and nothing destroyed. Any thread.
//
// Life of a link: linked; then either unlinked, which calls the unlink callback on the unlinking
// thread, or dying, when a pool thread calls the death callback and right after it the unlink
// callback. A link is taken out of its lists under the lock by exactly one thread, which is why
// each callback comes once.
#pragma once

#include <android/binder_ibinder.h>

#include <list>
#include <memory>
#include <vector>

#include "binder.h"

namespace host {

struct Recipient;

// One link. A linked one keeps its object referenced, so that the death is noticed whatever its
// user drops.
class DeathLink {
  public:
    std::shared_ptr<Recipient> recipient;
    void* cookie = nullptr;
    BinderRef proxy;
    std::list<std::shared_ptr<DeathLink>>::iterator in_proxy;
    std::list<std::shared_ptr<DeathLink>>::iterator in_recipient;
};

// What a handle of the public functions stands for; lives on until the last callback has returned.
struct Recipient {
    AIBinder_DeathRecipient_onBinderDied on_died = nullptr;
    AIBinder_DeathRecipient_onBinderUnlinked on_unlinked = nullptr;
    std::list<std::shared_ptr<DeathLink>> links;
};

// The death callbacks of dead objects, one after another, on one pool thread.
void PostDeathNotices(std::vector<BinderRef> dead);

}  // namespace host

struct AIBinder_DeathRecipient {
    std::shared_ptr<host::Recipient> state;
};
