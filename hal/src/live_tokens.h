// The addresses of the living tokens of one class: how a manager recognises its own tokens among
// those it is handed, without looking into an object that may be anybody's.
//
// Threads: any. The lock is a leaf: readers share it, and nothing is called while it is held. It is
// the one lock on an event's way to the worker, as a token cannot be recognised without: to read a
// mark in the object would be to read an object that may be anybody's. An address is only
// meaningful to somebody who keeps the object alive.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IToken.h>

#include <mutex>
#include <shared_mutex>

#include "flat_table.h"

namespace aidl::vendor::quorin::velmora_hub {

class LiveTokens {
  public:
    void Add(const IToken* token) {
        std::lock_guard lock(mutex_);
        tokens_.Put(token, {});
    }

    void Remove(const IToken* token) {
        std::lock_guard lock(mutex_);
        tokens_.Take(token);
    }

    bool Contains(const IToken* token) const {
        std::shared_lock lock(mutex_);
        return tokens_.Find(token) != nullptr;
    }

  private:
    struct Nothing {};

    mutable std::shared_mutex mutex_;
    // Guarded by mutex_; only in words, as no C++ library annotates its shared mutex.
    FlatTable<const IToken*, Nothing> tokens_;
};

}  // namespace aidl::vendor::quorin::velmora_hub
