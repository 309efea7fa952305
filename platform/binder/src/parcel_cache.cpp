#include <stddef.h>

#include "parcel.h"

namespace host {

namespace {

// So many for what a thread has at hand at a time, and small ones for the oneway calls that it
// takes out of a ring at once.
constexpr size_t kCachedParcels = 4;
constexpr size_t kCachedSmallParcels = 32;
constexpr size_t kSmallBytes = 1024;

// Plain data, so that it can be looked at after the thread's destructors have run.
struct Cache {
    AParcel* parcels[kCachedSmallParcels];
    size_t count;
    bool closed;
};
thread_local Cache cache;

// Ends the cache with its thread; what is recycled later is deleted at once.
struct CacheCloser {
    bool armed = false;
    ~CacheCloser() {
        cache.closed = true;
        while (cache.count > 0) {
            delete cache.parcels[--cache.count];
        }
    }
};
thread_local CacheCloser closer;

}  // namespace

AParcel* ObtainParcel() {
    return cache.count > 0 ? cache.parcels[--cache.count] : new AParcel();
}

void RecycleParcel(AParcel* parcel) {
    if (parcel == nullptr) return;
    // Releasing references may come back here.
    parcel->Reset();
    const size_t room = parcel->capacity() <= kSmallBytes ? kCachedSmallParcels : kCachedParcels;
    if (cache.closed || cache.count >= room) {
        delete parcel;
        return;
    }
    closer.armed = true;
    cache.parcels[cache.count++] = parcel;
}

}  // namespace host
