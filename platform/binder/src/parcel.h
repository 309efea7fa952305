// Definition of the parcel behind the public functions: bytes, the binders among them, and one
// position.
//
// Threads: as <android/binder_parcel.h>: one thread at a time, reading included.

#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <stddef.h>
#include <stdint.h>

#include <vector>

struct AParcel {
  public:
    // A parcel never holds more bytes than this.
    static constexpr size_t kMaxSize = 16 * 1024 * 1024;
    // What stands in the bytes for no binder; any other binder is its index in objects().
    static constexpr int32_t kNullBinder = -1;

    struct Object {
        // Where the index of this object stands in the bytes.
        uint32_t offset;
        // A strong reference held by the parcel; never null.
        AIBinder* binder;
    };

    AParcel() = default;
    ~AParcel();
    AParcel(const AParcel&) = delete;
    AParcel& operator=(const AParcel&) = delete;

    // Both end with the next change.
    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    size_t capacity() const { return capacity_; }
    // In the order of their offsets.
    const std::vector<Object>& objects() const { return objects_; }

    // Replaces the content by a copy of these bytes and takes over the references, position 0.
    // False, with the parcel empty and the references released: no memory, more than kMaxSize, or
    // an object that is not where the bytes have its index (aligned to 4, within the bytes,
    // ascending, never null). The bytes are read once and may change meanwhile.
    bool Assign(const uint8_t* data, size_t size, std::vector<Object>&& objects);
    // Empties, releases the references, keeps a buffer of up to 64 KiB. The position is 0.
    void Reset();

    size_t position() const { return position_; }
    // STATUS_BAD_VALUE: beyond the end, or neither aligned to 4 nor the end.
    binder_status_t SetPosition(size_t position) const;

    // Writes the bytes at the position, padded with zeros to 4.
    binder_status_t Write(const void* bytes, size_t size);
    // As Write, but gives the place for the bytes to be filled in; null with *status set on
    // failure.
    uint8_t* WriteInPlace(size_t size, binder_status_t* status);
    binder_status_t WriteBinder(AIBinder* binder);
    // Writes bytes with the binders among them, whose offsets count from `base`; takes references
    // of its own.
    binder_status_t WriteWithObjects(const uint8_t* bytes, size_t size, const Object* objects,
                                     size_t count, size_t base);

    // The next `size` bytes, and the position behind them and their padding; null if there are not
    // so many.
    const uint8_t* Read(size_t size) const;
    size_t left() const { return size_ - position_; }
    // A new reference in *binder.
    binder_status_t ReadBinder(AIBinder** binder) const;

    // The objects that lie wholly in [start, start + size): indices [*first, *last).
    void FindObjects(size_t start, size_t size, size_t* first, size_t* last) const;

    // The binder that the parcel was prepared for; not owned, null if none. Reset clears it.
    const AIBinder* binder = nullptr;

    // How many parcelables are being read inside one another.
    mutable uint32_t depth = 0;

  private:
    bool Reserve(size_t size);
    bool HoldsObjectIn(size_t start, size_t size) const;
    void ReleaseObjects();

    uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
    mutable size_t position_ = 0;
    std::vector<Object> objects_;
};

namespace host {

// A parcel out of a small store of the calling thread, empty. Works at any time, also while the
// thread or the process ends. Ended by RecycleParcel on any thread.
AParcel* ObtainParcel();
// Null is accepted. Releases the references first.
void RecycleParcel(AParcel* parcel);

}  // namespace host
