#include "death_links.h"

#include <condition_variable>
#include <mutex>
#include <utility>

#include "pool.h"
#include "test_hooks.h"

namespace host {
namespace {

using LinkList = std::list<std::shared_ptr<DeathLink>>;

std::mutex& LinksMutex() {
    static std::mutex* mutex = new std::mutex;  // never destroyed: links end until the very end
    return *mutex;
}

// Holds back unlink callbacks for tests; closed at most for moments, never in production.
struct UnlinkGate {
    std::mutex mutex;
    std::condition_variable opened;
    std::atomic<bool> held{false};
    int waiting = 0;
};

UnlinkGate& Gate() {
    static UnlinkGate* gate = new UnlinkGate;
    return *gate;
}

void PassGate() {
    UnlinkGate& gate = Gate();
    if (!gate.held.load(std::memory_order_acquire)) [[likely]]
        return;
    std::unique_lock lock(gate.mutex);
    ++gate.waiting;
    gate.opened.wait(lock, [&gate] { return !gate.held.load(); });
    --gate.waiting;
}

void CallUnlinked(const DeathLink& link) {
    PassGate();
    if (link.recipient->on_unlinked != nullptr) link.recipient->on_unlinked(link.cookie);
}

// Takes the link out of its object's list, so that no death callback starts any more. Under the
// lock.
void TakeFromProxy(DeathLink* link) {
    AsProxy(link->proxy.get())->links.erase(link->in_proxy);
}

std::shared_ptr<DeathLink> TakeFirstLink(ProxyBinder* proxy) {
    std::lock_guard lock(LinksMutex());
    if (proxy->links.empty()) return nullptr;
    std::shared_ptr<DeathLink> link = proxy->links.front();
    proxy->links.pop_front();
    // Whoever deletes the recipient from here on does not find the link: its callbacks are this
    // thread's.
    link->recipient->links.erase(link->in_recipient);
    return link;
}

void NotifyDeath(ProxyBinder* proxy) {
    for (;;) {
        // Not with a link in hand: who deletes its recipient while the process exits would not find
        // it, and nobody would call that it has ended.
        Pool::StayIfExiting();
        const std::shared_ptr<DeathLink> link = TakeFirstLink(proxy);
        if (link == nullptr) return;
        link->recipient->on_died(link->cookie);
        CallUnlinked(*link);
        link->proxy.reset();
    }
}

}  // namespace

void PostDeathNotices(std::vector<BinderRef> dead) {
    if (dead.empty()) return;
    auto shared = std::make_shared<std::vector<BinderRef>>(std::move(dead));
    Pool::Get().Post([shared] {
        for (BinderRef& proxy : *shared) {
            NotifyDeath(AsProxy(proxy.get()));
            proxy.reset();
        }
    });
}

}  // namespace host

namespace host::test {

void HoldUnlinkCallbacks() {
    Gate().held.store(true, std::memory_order_release);
}

void ReleaseUnlinkCallbacks() {
    UnlinkGate& gate = Gate();
    std::lock_guard lock(gate.mutex);
    gate.held.store(false);
    gate.opened.notify_all();
}

int WaitingUnlinkCallbacks() {
    UnlinkGate& gate = Gate();
    std::lock_guard lock(gate.mutex);
    return gate.waiting;
}

}  // namespace host::test

using host::AsProxy;
using host::DeathLink;
using host::LinksMutex;
using host::Recipient;

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied on_died) {
    if (on_died == nullptr) return nullptr;
    auto state = std::make_shared<Recipient>();
    state->on_died = on_died;
    return new AIBinder_DeathRecipient{std::move(state)};
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked on_unlinked) {
    if (recipient != nullptr) recipient->state->on_unlinked = on_unlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    std::list<std::shared_ptr<DeathLink>> ended;
    {
        std::lock_guard lock(LinksMutex());
        ended.swap(recipient->state->links);
        for (auto& link : ended)
            host::TakeFromProxy(link.get());
    }
    for (auto& link : ended) {
        host::CallUnlinked(*link);
        link->proxy.reset();
    }
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    host::ProxyBinder* proxy = AsProxy(binder);
    if (proxy == nullptr) return STATUS_INVALID_OPERATION;
    auto link = std::make_shared<DeathLink>();
    link->recipient = recipient->state;
    link->cookie = cookie;
    link->proxy = host::NewRef(binder);
    bool linked = false;
    {
        std::lock_guard lock(LinksMutex());
        // A death that is noticed later finds the link: it looks under the same lock.
        linked = !proxy->IsDead();
        if (linked) {
            link->in_proxy = proxy->links.insert(proxy->links.end(), link);
            auto& of_recipient = recipient->state->links;
            link->in_recipient = of_recipient.insert(of_recipient.end(), link);
        }
    }
    return linked ? STATUS_OK : STATUS_DEAD_OBJECT;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    std::shared_ptr<DeathLink> ended;
    {
        std::lock_guard lock(LinksMutex());
        for (auto& link : recipient->state->links) {
            if (link->proxy.get() != binder || link->cookie != cookie) continue;
            ended = link;
            break;
        }
        if (ended != nullptr) {
            host::TakeFromProxy(ended.get());
            recipient->state->links.erase(ended->in_recipient);
        }
    }
    if (ended == nullptr)
        return AsProxy(binder) == nullptr ? STATUS_INVALID_OPERATION : STATUS_NAME_NOT_FOUND;
    host::CallUnlinked(*ended);
    ended->proxy.reset();
    return STATUS_OK;
}
