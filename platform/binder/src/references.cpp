#include "references.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "limits.h"
#include "sys.h"

namespace host {
namespace {

// As many random bytes as the kernel gives without interruption.
constexpr size_t kNamesDrawnAtOnce = 16;
static_assert(kNamesDrawnAtOnce * sizeof(RandomBits) <= 256);

using Halves = std::array<uint64_t, 2>;

// Not counted among the transport's calls: without a secret the tables are slower under attack, no
// more.
Halves DrawSecret() {
    Halves secret{};
    [[maybe_unused]] ssize_t drawn = getrandom(secret.data(), sizeof(secret), 0);
    return secret;
}

ProxyKey KeyOf(const ProxyBinder& proxy) {
    return {proxy.id, proxy.descriptor};
}

}  // namespace

size_t RefIdHash::operator()(const RefId& id) const {
    static const Halves secret = DrawSecret();
    const auto halves = std::bit_cast<Halves>(id.bits);
    uint64_t mixed = (halves[0] ^ secret[0]) * 0x9e3779b97f4a7c15U;
    mixed ^= mixed >> 32;
    mixed = (mixed + (halves[1] ^ secret[1])) * 0xd6e8feb86659fd93U;
    mixed ^= mixed >> 32;
    mixed = (mixed + id.place) * 0x9e3779b97f4a7c15U;
    return static_cast<size_t>(mixed ^ (mixed >> 32));
}

size_t ProxyKeyHash::operator()(const ProxyKey& key) const {
    uint64_t mixed = RefIdHash()(key.id);  // which the secret is part of
    for (std::string_view rest = key.descriptor; !rest.empty();) {
        uint64_t piece = 0;
        const size_t size = std::min(rest.size(), sizeof(piece));
        memcpy(&piece, rest.data(), size);
        rest.remove_prefix(size);
        mixed = (mixed ^ piece) * 0x9e3779b97f4a7c15U;
        mixed ^= mixed >> 32;
    }
    return mixed;
}

ExportTable& ExportTable::Get() {
    static ExportTable* table =
            new ExportTable;  // never destroyed: releases come in until the very end
    return *table;
}

bool ExportTable::DrawBits(RandomBits* bits) {
    if (drawn_.empty()) {
        std::array<RandomBits, kNamesDrawnAtOnce> names;
        if (sys::GetRandom(names.data(), sizeof(names)) != static_cast<ssize_t>(sizeof(names)))
            return false;
        drawn_.assign(names.begin(), names.end());
    }
    *bits = drawn_.back();
    drawn_.pop_back();
    return true;
}

LocalBinder* ExportTable::Seek(const RefId& id) {
    if (id.place >= places_.size()) return nullptr;
    auto* const binder = static_cast<LocalBinder*>(places_[id.place].get());
    return binder != nullptr && binder->export_bits == id.bits ? binder : nullptr;
}

uint32_t ExportTable::TakePlace() {
    if (free_.empty()) {
        places_.emplace_back();
        return static_cast<uint32_t>(places_.size() - 1);
    }
    const uint32_t place = free_.back();
    free_.pop_back();
    return place;
}

bool ExportTable::HandOver(LocalBinder* binder, RefId* id) {
    std::lock_guard lock(mutex_);
    if (binder->hand_overs == 0) {
        // Handed over again it has a new name: whoever still has the old one holds nothing.
        if (!DrawBits(&binder->export_bits)) return false;
        binder->export_place = TakePlace();
        places_[binder->export_place] = NewRef(binder);
    }
    *id = {binder->export_bits, binder->export_place};
    ++binder->hand_overs;
    return true;
}

bool ExportTable::HandOver(const RefId& id) {
    std::lock_guard lock(mutex_);
    LocalBinder* const binder = Seek(id);
    if (binder == nullptr) return false;
    ++binder->hand_overs;
    return true;
}

BinderRef ExportTable::TakeBack(const RefId& id, size_t count) {
    std::lock_guard lock(mutex_);
    LocalBinder* const binder = Seek(id);
    if (binder == nullptr || binder->hand_overs < count) return nullptr;
    // The one of its entry stays with the context object, whatever is taken back.
    const size_t stay = id == kContextObjectId ? 1 : 0;
    binder->hand_overs = std::max(binder->hand_overs - count, stay);
    if (binder->hand_overs != 0) return nullptr;
    free_.push_back(id.place);
    return std::move(places_[id.place]);
}

BinderRef ExportTable::Find(const RefId& id) {
    std::lock_guard lock(mutex_);
    LocalBinder* const binder = Seek(id);
    if (binder == nullptr) return nullptr;
    // Whoever asks for it wants its owner's object next.
    __builtin_prefetch(binder->user_data);
    return NewRef(binder);
}

void ExportTable::EnterContextObject(LocalBinder* binder) {
    std::lock_guard lock(mutex_);
    binder->hand_overs = 1;
    binder->export_bits = kContextObjectId.bits;
    binder->export_place = kContextObjectId.place;
    places_[kContextObjectId.place] = NewRef(binder);
}

size_t ExportTable::size() {
    std::lock_guard lock(mutex_);
    const size_t context = places_.front() == nullptr ? 1 : 0;
    return places_.size() - free_.size() - context;
}

Holdings::Result Holdings::Add(const RefId& id) {
    std::lock_guard lock(mutex_);
    if (closed_) return Result::kClosed;
    const auto [held, is_new] = counts_.try_emplace(id, 0);
    if (held->second == std::numeric_limits<uint32_t>::max()) return Result::kFull;
    if (is_new && counts_.size() > kMaxReferencesPerPeer) {
        counts_.erase(held);
        return Result::kFull;
    }
    ++held->second;
    return Result::kOk;
}

Holdings::Result Holdings::Remove(const RefId& id, uint32_t count) {
    std::lock_guard lock(mutex_);
    auto held = counts_.find(id);
    if (held == counts_.end() || held->second < count) return Result::kUnknown;
    held->second -= count;
    if (held->second == 0) counts_.erase(held);
    return Result::kOk;
}

bool Holdings::Contains(const RefId& id) {
    std::lock_guard lock(mutex_);
    return counts_.count(id) != 0;
}

std::vector<std::pair<RefId, uint32_t>> Holdings::Close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    std::vector<std::pair<RefId, uint32_t>> all(counts_.begin(), counts_.end());
    counts_.clear();
    return all;
}

Keeps::Result Keeps::Add(AIBinder* binder, std::string_view owner, const RefId& id) {
    std::lock_guard lock(mutex_);
    if (closed_) return Result::kClosed;
    Kept& kept = kept_[{std::string(owner), id}];
    const auto same = [=](const BinderRef& one) { return one.get() == binder; };
    if (std::none_of(kept.binders.begin(), kept.binders.end(), same)) {
        if (binders_ == kMaxPassedOn) {
            if (kept.binders.empty()) kept_.erase({std::string(owner), id});
            return Result::kFull;
        }
        ++binders_;
        kept.binders.push_back(NewRef(binder));
    }
    ++kept.count;
    return Result::kOk;
}

bool Keeps::Settle(std::string_view owner, const RefId& id, std::vector<BinderRef>* released) {
    std::lock_guard lock(mutex_);
    auto kept = kept_.find({std::string(owner), id});
    if (kept == kept_.end()) return closed_;
    if (--kept->second.count != 0) return true;
    *released = std::move(kept->second.binders);
    binders_ -= released->size();
    kept_.erase(kept);
    return true;
}

std::vector<BinderRef> Keeps::Close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    std::vector<BinderRef> all;
    for (auto& [key, kept] : kept_)
        std::move(kept.binders.begin(), kept.binders.end(), std::back_inserter(all));
    kept_.clear();
    return all;
}

DelayedReleases::Result DelayedReleases::Add(const Release& release) {
    std::lock_guard lock(mutex_);
    if (release.after <= position_) return Result::kNow;
    if (waiting_.size() >= kMaxReferencesPerPeer) return Result::kFull;
    waiting_.push_back(release);
    return Result::kDelayed;
}

std::vector<DelayedReleases::Release> DelayedReleases::Reach(uint64_t position) {
    std::vector<Release> reached;
    std::lock_guard lock(mutex_);
    // Several threads read the ring in turns, and tell of it in any order.
    position_ = std::max(position_, position);
    while (!waiting_.empty() && waiting_.front().after <= position_) {
        reached.push_back(waiting_.front());
        waiting_.pop_front();
    }
    return reached;
}

std::vector<DelayedReleases::Release> DelayedReleases::Close() {
    return Reach(std::numeric_limits<uint64_t>::max());
}

// One that is losing its last reference stays out of the way, and so does one that its owner knew
// nothing of: the same object may be handed over after all. Its own release settles its own
// arrivals.
ProxyBinder* ProxyTable::FindOrMake(const ProxyKey& key, const Maker& make) {
    const auto slot = proxies_.find(key);
    const bool is_there = slot != proxies_.end();
    if (is_there && !slot->second->gone.load() && slot->second->TryIncStrong()) return slot->second;
    if (is_there) proxies_.erase(slot);
    ProxyBinder* const made = make();
    proxies_.emplace(KeyOf(*made), made);
    return made;
}

BinderRef ProxyTable::Arrive(const ProxyKey& key, const Maker& make) {
    std::lock_guard lock(mutex_);
    if (closed_) return nullptr;
    ProxyBinder* proxy = FindOrMake(key, make);
    ++proxy->arrivals;
    return BinderRef(proxy);
}

BinderRef ProxyTable::ArriveUncounted(const ProxyKey& key, const Maker& make, bool* entered) {
    std::lock_guard lock(mutex_);
    if (closed_) return nullptr;
    ProxyBinder* proxy = FindOrMake(key, make);
    *entered = proxy->arrivals != 0;
    return BinderRef(proxy);
}

void ProxyTable::Count(ProxyBinder* proxy) {
    std::lock_guard lock(mutex_);
    ++proxy->arrivals;
}

bool ProxyTable::IsCounted(const ProxyBinder* proxy) {
    std::lock_guard lock(mutex_);
    return proxy->arrivals != 0;
}

uint32_t ProxyTable::Leave(ProxyBinder* proxy) {
    std::lock_guard lock(mutex_);
    auto slot = proxies_.find(KeyOf(*proxy));
    if (slot != proxies_.end() && slot->second == proxy) proxies_.erase(slot);
    return proxy->arrivals;
}

std::vector<BinderRef> ProxyTable::Close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    std::vector<BinderRef> alive;
    for (auto& [key, proxy] : proxies_) {
        if (proxy->TryIncStrong()) alive.emplace_back(proxy);
    }
    proxies_.clear();
    return alive;
}

}  // namespace host
