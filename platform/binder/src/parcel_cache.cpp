#include <stddef.h>

#include "parcel.h"

namespace host {

namespace {

constexpr size_t kCachedParcels = 4;

// Plain data, so that it can be looked at after the thread's destructors have run.
struct Cache {
    AParcel* parcels[kCachedParcels];
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
    if (cache.closed || cache.count == kCachedParcels) {
        delete parcel;
        return;
    }
    closer.armed = true;
    cache.parcels[cache.count++] = parcel;
}

}  // namespace host
