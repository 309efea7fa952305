// A hash table whose entries lie side by side: a lookup reads one place in memory, where a
// std::unordered_map follows three pointers, each to memory that the processor's caches have lost
// once there are many entries.
//
// K is a plain pointer or an integer; zero is no key. V is movable, its default what a key without
// an entry has; an empty one takes no room. Pointers to values are good until the next change.
// Takes no lock: the owner's guards it.

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace aidl::vendor::quorin::velmora_hub {

template <typename K, typename V>
class FlatTable {
  public:
    // The key's value; null if it has none.
    V* Find(K key) {
        Slot& slot = slots_[Seek(key)];
        return slot.IsFree() ? nullptr : &slot.value;
    }
    const V* Find(K key) const { return const_cast<FlatTable*>(this)->Find(key); }

    // Begins to read what Find will look at, which takes long if the caches have lost it.
    void FetchAhead(K key) const { __builtin_prefetch(&slots_[Home(key)]); }

    // Gives the key a value; returns the former one, the default if there was none.
    V Put(K key, V value) {
        if (2 * (size_ + 1) > slots_.size()) Resize(2 * slots_.size());
        Slot& slot = slots_[Seek(key)];
        if (slot.IsFree()) ++size_;
        slot.key = key;
        return std::exchange(slot.value, std::move(value));
    }

    bool IsEmpty() const { return size_ == 0; }

    // Calls `visit` with each key and value, in the order of their places. It must not change the
    // table.
    template <typename F>
    void ForEach(const F& visit) const {
        for (const Slot& slot : slots_)
            if (!slot.IsFree()) visit(slot.key, slot.value);
    }

    // Takes the key out. Its value, the default if it had none.
    V Take(K key) {
        const size_t place = Seek(key);
        if (slots_[place].IsFree()) return {};
        V taken = std::exchange(slots_[place], {}).value;
        --size_;
        Close(place);
        if (slots_.size() > kLeast && 8 * size_ < slots_.size()) Resize(slots_.size() / 2);
        return taken;
    }

  private:
    struct Entry {
        K key = {};
        [[no_unique_address]] V value = {};
    };
    // None lies across two lines of the caches.
    struct alignas(std::bit_ceil(sizeof(Entry))) Slot : Entry {
        bool IsFree() const { return this->key == K{}; }
    };
    static constexpr size_t kLeast = 16;

    // Where the search for the key begins. The factor, 2^64 divided by the golden ratio, spreads
    // keys that follow each other, and addresses, which share their low bits.
    size_t Home(K key) const {
        const uint64_t mixed = uint64_t{std::hash<K>()(key)} * 0x9e3779b97f4a7c15U;
        return static_cast<size_t>(mixed >> 32) & (slots_.size() - 1);
    }
    size_t Next(size_t place) const { return (place + 1) & (slots_.size() - 1); }

    // Where the key is, or the free slot where it belongs: half of the slots at least are free.
    size_t Seek(K key) const {
        size_t place = Home(key);
        while (!slots_[place].IsFree() && slots_[place].key != key)
            place = Next(place);
        return place;
    }

    // Moves entries up that the search would not find any more behind the slot that became free.
    void Close(size_t free) {
        const size_t mask = slots_.size() - 1;
        for (size_t at = Next(free); !slots_[at].IsFree(); at = Next(at)) {
            const size_t home = Home(slots_[at].key);
            if (((at - home) & mask) < ((at - free) & mask)) continue;
            slots_[free] = std::exchange(slots_[at], {});
            free = at;
        }
    }

    void Resize(size_t count) {
        std::vector<Slot> former(count);
        former.swap(slots_);
        for (Slot& slot : former)
            if (!slot.IsFree()) slots_[Seek(slot.key)] = std::move(slot);
    }

    // A power of two of them.
    std::vector<Slot> slots_ = std::vector<Slot>(kLeast);
    size_t size_ = 0;
};

}  // namespace aidl::vendor::quorin::velmora_hub
