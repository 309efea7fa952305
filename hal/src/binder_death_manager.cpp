#include "binder_death_manager.h"

#include <android-base/thread_annotations.h>
#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "flat_table.h"

namespace aidl::vendor::quorin::velmora_hub {

namespace {

constexpr char kLogTag[] = "velmora_hal";

using Cookie = std::unique_ptr<DeathCookie>;

// Made before main and never destroyed, like the tables it guards: owners of links may end them
// during static destruction, and a binder thread may be inside a callback while the process exits.
std::mutex& gDeathCookiesMutex = *new std::mutex;

// Every cookie that a token was last tracked with.
FlatTable<IToken*, Cookie>& gDeathCookies GUARDED_BY(gDeathCookiesMutex) =
        *new FlatTable<IToken*, Cookie>;

// Cookies whose token was tracked again while the platform still held them. Rare, hence a list.
std::vector<Cookie>& gDisplacedCookies GUARDED_BY(gDeathCookiesMutex) = *new std::vector<Cookie>;

// Notified when a cookie has left the table, or the platform has refused it.
std::condition_variable& gCookieReleased = *new std::condition_variable;

// The innermost death callback that this thread is inside of.
struct RunningDeath {
    const DeathCookie* cookie;
    const RunningDeath* outer;
};
thread_local const RunningDeath* tRunningDeath = nullptr;

bool IsRunningHere(const DeathCookie* cookie) {
    const RunningDeath* running = tRunningDeath;
    while (running != nullptr && running->cookie != cookie)
        running = running->outer;
    return running != nullptr;
}

// Puts the cookie in its token's place. Returns the one that stood there, unless the platform may
// still call back with it; the caller destroys it without the lock.
Cookie Store(Cookie cookie) EXCLUDES(gDeathCookiesMutex) {
    std::lock_guard lock(gDeathCookiesMutex);
    IToken* const token = cookie->token.get();
    Cookie former = gDeathCookies.Put(token, std::move(cookie));
    if (former != nullptr && !former->refused) gDisplacedCookies.push_back(std::move(former));
    return former;
}

// Takes the cookie out of the displaced ones; null if it is not among them.
Cookie TakeDisplaced(const DeathCookie* cookie) REQUIRES(gDeathCookiesMutex) {
    const auto found = std::find_if(gDisplacedCookies.begin(), gDisplacedCookies.end(),
                                    [=](const Cookie& other) { return other.get() == cookie; });
    if (found == gDisplacedCookies.end()) return nullptr;
    Cookie taken = std::move(*found);
    gDisplacedCookies.erase(found);
    return taken;
}

// Takes the cookie out of wherever it is; null if it is nowhere. The newer cookie of a token that
// was tracked again stays.
Cookie Take(DeathCookie* cookie) EXCLUDES(gDeathCookiesMutex) {
    std::lock_guard lock(gDeathCookiesMutex);
    const Cookie* const current = gDeathCookies.Find(cookie->token.get());
    if (current == nullptr || current->get() != cookie) return TakeDisplaced(cookie);
    return gDeathCookies.Take(cookie->token.get());
}

// Whether the platform may still call back with a cookie of the token, on another thread.
bool IsLinked(IToken* token) REQUIRES(gDeathCookiesMutex) {
    const auto may_call = [=](const Cookie& cookie) {
        return cookie->token.get() == token && !cookie->refused && !IsRunningHere(cookie.get());
    };
    const Cookie* const current = gDeathCookies.Find(token);
    if (current != nullptr && may_call(*current)) return true;
    return std::any_of(gDisplacedCookies.begin(), gDisplacedCookies.end(), may_call);
}

// Notes that the platform does not hold the cookie. It stays in its token's place; a displaced one
// is of no use to anybody and is returned, to be destroyed without the lock.
Cookie Refuse(DeathCookie* cookie) EXCLUDES(gDeathCookiesMutex) {
    std::lock_guard lock(gDeathCookiesMutex);
    cookie->refused = true;
    return TakeDisplaced(cookie);
}

}  // namespace

AIBinder_DeathRecipient* BinderDeathManager::TrackDeath(AIBinder* binder,
                                                        const std::shared_ptr<IToken>& token,
                                                        DeathHandler* handler) {
    Cookie owned(new DeathCookie{handler, token});
    DeathCookie* cookie = owned.get();
    // Before the link: its death and its unlinking may be over when AIBinder_linkToDeath returns.
    Store(std::move(owned));
    AIBinder_DeathRecipient* recipient = AIBinder_DeathRecipient_new(OnBinderDied);
    AIBinder_DeathRecipient_setOnUnlinked(recipient, OnBinderUnlinked);
    if (AIBinder_linkToDeath(binder, recipient, cookie) != STATUS_OK) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag,
                            "Cannot listen to binder death for this client.");
        Refuse(cookie);
        gCookieReleased.notify_all();
    }
    return recipient;
}

// The analysis cannot follow a wait.
void BinderDeathManager::AwaitUnlinked(const std::shared_ptr<IToken>& token)
        NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(gDeathCookiesMutex);
    gCookieReleased.wait(lock, [&] {
        const ::android::base::ScopedLockAssertion held(gDeathCookiesMutex);
        return !IsLinked(token.get());
    });
}

void BinderDeathManager::OnBinderDied(void* cookie) {
    const auto* died = static_cast<DeathCookie*>(cookie);
    // A copy: the handler may end the link, and the platform free the cookie, while it runs.
    const std::shared_ptr<IToken> token = died->token;
    const RunningDeath running = {died, tRunningDeath};
    tRunningDeath = &running;
    died->handler->HandleBinderDeath(token);
    tRunningDeath = running.outer;
}

void BinderDeathManager::OnBinderUnlinked(void* cookie) {
    // Destroyed here, without the lock: a token's destructor is not ours.
    const Cookie unlinked = Take(static_cast<DeathCookie*>(cookie));
    gCookieReleased.notify_all();
}

}  // namespace aidl::vendor::quorin::velmora_hub
