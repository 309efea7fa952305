#include "objects.h"

#include <algorithm>

#include "endpoint.h"
#include "limits.h"
#include "peer.h"
#include "warning.h"

namespace host {
namespace {

std::string_view DescriptorOf(const AIBinder* binder) {
    // A stand-in with a class has its descriptor, which the caches have.
    const AIBinder_Class* const clazz = binder->clazz.load();
    if (clazz == nullptr) return static_cast<const ProxyBinder*>(binder)->descriptor;
    const std::string_view descriptor = clazz->descriptor;
    // A longer one cannot come from a declaration; its hint is left out and the call itself finds
    // out.
    return descriptor.size() <= kMaxDescriptorBytes ? descriptor : std::string_view();
}

// A stand-in for something that nobody owns any more.
BinderRef DeadProxy(const RefId& id, std::string_view descriptor) {
    return BinderRef(new ProxyBinder(nullptr, id, descriptor));
}

ProxyKey KeyOf(const ObjectView& view) {
    return {view.entry.id, view.descriptor};
}

ProxyBinder* MakeProxy(const std::shared_ptr<Peer>& owner, const ObjectView& view) {
    auto* made = new ProxyBinder(owner, view.entry.id, view.descriptor);
    made->vintf_stable.store((view.entry.flags & kObjectIsVintf) != 0);
    return made;
}

BinderRef ArriveFrom(const std::shared_ptr<Peer>& owner, const ObjectView& view) {
    BinderRef proxy = owner->proxies.Arrive(KeyOf(view), [&] { return MakeProxy(owner, view); });
    return proxy != nullptr ? std::move(proxy) : DeadProxy(view.entry.id, view.descriptor);
}

BinderRef ArriveThroughThird(const std::shared_ptr<Peer>& from, const ObjectView& view) {
    auto owner = Endpoint::Get().GetPeer(view.owner, from.get());
    bool entered = false;
    BinderRef proxy = owner->proxies.ArriveUncounted(
            KeyOf(view), [&] { return MakeProxy(owner, view); }, &entered);
    if (proxy == nullptr) proxy = DeadProxy(view.entry.id, view.descriptor);
    // What this process holds already needs nobody else's reference to stay.
    if (entered) {
        from->SendSettled(owner->name, view.entry.id);
    } else {
        owner->SendAcquire(AsProxy(proxy.get()), from);
    }
    return proxy;
}

BinderRef DecodeOne(const std::shared_ptr<Peer>& from, const ObjectView& view) {
    OwnerKind kind = view.entry.owner_kind;
    if (kind == OwnerKind::kOther && view.owner == Endpoint::Get().name())
        kind = OwnerKind::kReceiver;
    if (kind == OwnerKind::kOther && view.owner == from->name) kind = OwnerKind::kSender;
    bool wants_settled = (view.entry.flags & kObjectWantsSettled) != 0;
    if (kind == OwnerKind::kSender) return ArriveFrom(from, view);
    if (kind == OwnerKind::kReceiver) {
        BinderRef own = ExportTable::Get().Find(view.entry.id);
        if (wants_settled) from->SendSettled(Endpoint::Get().name(), view.entry.id);
        return own != nullptr ? std::move(own) : DeadProxy(view.entry.id, view.descriptor);
    }
    return ArriveThroughThird(from, view);
}

}  // namespace

binder_status_t ObjectEncoder::CheckSize(const AParcel& parcel) const {
    size_t size = Padded(parcel.size());
    for (const AParcel::Object& object : parcel.objects()) {
        size += sizeof(WireObject) + Padded(kEndpointNameSize + DescriptorOf(object.binder).size());
    }
    if (size <= kMaxTransactionBytes) return STATUS_OK;
    Warn("A transaction of %zu bytes to pid %d uid %d is not sent: at most %zu.", size, to_->pid(),
         to_->uid(), kMaxTransactionBytes);
    return STATUS_FAILED_TRANSACTION;
}

binder_status_t ObjectEncoder::Encode(const AParcel& parcel, Buffer* table) {
    binder_status_t status = CheckSize(parcel);
    for (const AParcel::Object& object : parcel.objects()) {
        if (status == STATUS_OK) status = EncodeOne(object, table);
    }
    if (status != STATUS_OK) Undo();
    return status;
}

binder_status_t ObjectEncoder::EncodeOne(const AParcel::Object& object, Buffer* table) {
    WireObject entry{};
    std::string owner;
    entry.offset = object.offset;
    entry.flags = object.binder->vintf_stable.load() ? kObjectIsVintf : 0;
    binder_status_t status = object.binder->is_remote() ? PassOn(object.binder, &entry, &owner)
                                                        : HandOverLocal(object.binder, &entry);
    if (status != STATUS_OK) return status;
    std::string_view descriptor = DescriptorOf(object.binder);
    entry.owner_size = static_cast<uint16_t>(owner.size());
    entry.descriptor_size = static_cast<uint32_t>(descriptor.size());
    table->Append(&entry, sizeof(entry));
    table->Append(owner.data(), owner.size());
    table->Append(descriptor.data(), descriptor.size());
    size_t names = owner.size() + descriptor.size();
    constexpr uint8_t kPadding[sizeof(uint32_t)] = {};
    table->Append(kPadding, Padded(names) - names);
    return STATUS_OK;
}

binder_status_t ObjectEncoder::HandOverLocal(AIBinder* binder, WireObject* entry) {
    entry->owner_kind = OwnerKind::kSender;
    if (!ExportTable::Get().HandOver(AsLocal(binder), &entry->id)) return STATUS_NO_MEMORY;
    Holdings::Result result = to_->holdings.Add(entry->id);
    if (result == Holdings::Result::kOk) {
        done_.push_back({entry->id, ""});
        return STATUS_OK;
    }
    // The parcel holds the object: this is not its last reference.
    BinderRef taken_back = ExportTable::Get().TakeBack(entry->id, 1);
    if (result != Holdings::Result::kFull) return STATUS_DEAD_OBJECT;
    to_->TellOfHoldings();
    return STATUS_FAILED_TRANSACTION;
}

binder_status_t ObjectEncoder::PassOn(AIBinder* binder, WireObject* entry, std::string* owner) {
    ProxyBinder* proxy = AsProxy(binder);
    entry->id = proxy->id;
    // Nobody answers for it: it arrives as what it is here, an object that is dead.
    bool to_owner = proxy->peer == nullptr || proxy->peer.get() == to_;
    entry->owner_kind = to_owner ? OwnerKind::kReceiver : OwnerKind::kOther;
    if (!to_owner) *owner = proxy->peer->name;
    if (to_owner && (direction_ == Direction::kCall || proxy->peer == nullptr)) return STATUS_OK;
    entry->flags |= kObjectWantsSettled;
    const std::string& kept_for = proxy->peer->name;
    Keeps::Result result = to_->keeps.Add(binder, kept_for, proxy->id);
    if (result == Keeps::Result::kOk) {
        done_.push_back({proxy->id, kept_for});
        return STATUS_OK;
    }
    if (result != Keeps::Result::kFull) return STATUS_DEAD_OBJECT;
    if (to_->IsFirst(Peer::Trouble::kKept)) {
        Warn("No further reference is passed on to pid %d uid %d: %zu are kept for "
             "it, as many as may be.",
             to_->pid(), to_->uid(), kMaxPassedOn);
    }
    return STATUS_FAILED_TRANSACTION;
}

void ObjectEncoder::Undo() {
    for (const Done& one : done_) {
        // The parcel holds them all; at most a further stand-in goes here.
        std::vector<BinderRef> released;
        if (!one.owner.empty()) {
            to_->keeps.Settle(one.owner, one.id, &released);
        } else if (to_->holdings.Remove(one.id, 1) == Holdings::Result::kOk) {
            released.push_back(ExportTable::Get().TakeBack(one.id, 1));
        }
    }
    done_.clear();
}

bool DecodeObjects(const std::shared_ptr<Peer>& from, const Message& message,
                   std::vector<AParcel::Object>* objects) {
    ObjectReader reader(message.objects);
    objects->reserve(message.object_count);
    for (uint32_t i = 0; i < message.object_count; ++i) {
        auto view = reader.Next();
        if (!view) return false;
        if (view->entry.owner_kind == OwnerKind::kOther && !PidOfEndpointName(view->owner))
            return false;
        objects->push_back({view->entry.offset, DecodeOne(from, *view).release()});
    }
    return reader.AtEnd();
}

void DropObjects(std::vector<AParcel::Object>* objects) {
    for (const AParcel::Object& object : *objects)
        object.binder->DecStrong();
    objects->clear();
}

}  // namespace host
