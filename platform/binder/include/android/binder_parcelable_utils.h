// A field that holds a parcelable whose type the holder's own interface need not know.
//
// Threads: a holder is a value. Any number of threads may use one at the same time through const
// functions (copying from it, writeToParcel and getParcelable included); a change needs the holder
// alone. Nothing blocks; dropping a content with binders in it may run foreign code.

#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdint.h>

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace ndk {

// How far a type promises to stay as it is; a larger value promises more.
using parcel_stability_t = int32_t;
enum {
    STABILITY_LOCAL = 0,
    STABILITY_VINTF = 1,
};

namespace internal {

// Reading of nested parcelables, bounded by 64 levels per parcel: false refuses. Each true needs
// one Leave.
bool EnterParcelable(const AParcel* parcel);
void LeaveParcelable(const AParcel* parcel);

}  // namespace internal

// Empty, or one parcelable as the bytes it was written in, behind its descriptor. What came from
// elsewhere is kept byte for byte, whether its type is known here or not. A copy takes at most one
// allocation, of an empty holder none.
class AParcelableHolder {
  public:
    AParcelableHolder() = delete;
    // Holds only what is at least that stable.
    explicit AParcelableHolder(parcel_stability_t stability) : stability_(stability) {}
    AParcelableHolder(const AParcelableHolder& other);
    AParcelableHolder(AParcelableHolder&&) noexcept = default;
    ~AParcelableHolder() = default;
    // Takes the other's stability too.
    AParcelableHolder& operator=(const AParcelableHolder& other);
    AParcelableHolder& operator=(AParcelableHolder&&) noexcept = default;

    // Stability, size in bytes, the bytes; binders come with them.
    binder_status_t writeToParcel(AParcel* parcel) const;
    // STATUS_BAD_VALUE: another stability than the holder's, or a size that cannot be. The holder
    // is empty then.
    binder_status_t readFromParcel(const AParcel* parcel);

    // Stores a copy, in the place of what was held. STATUS_BAD_VALUE: `T` is less stable than the
    // holder, which stays as it was. A failure of T::writeToParcel is passed on and leaves the
    // holder empty.
    template <typename T>
    binder_status_t setParcelable(const T& parcelable);
    // Null makes the holder empty.
    template <typename T>
    binder_status_t setParcelable(const std::shared_ptr<T>& parcelable);

    // STATUS_OK without a value: the holder is empty or holds another type. A failure of reading is
    // passed on, without a value too. Every call reads from the begin.
    template <typename T>
    binder_status_t getParcelable(std::optional<T>* out) const;
    template <typename T>
    binder_status_t getParcelable(std::shared_ptr<T>* out) const;

    void reset() { content_.reset(); }
    parcel_stability_t getStability() const { return stability_; }

  private:
    struct Content;
    struct ContentDeleter {
        void operator()(Content* content) const;
    };
    using ContentPointer = std::unique_ptr<Content, ContentDeleter>;

    // A copy of that range of the parcel, with references of its own.
    static ContentPointer MakeContent(const AParcel* parcel, size_t start, size_t size);
    static ContentPointer Copy(const Content* content);

    // A new parcel that begins with the descriptor; null if that fails.
    static ScopedAParcel Begin(const char* descriptor);
    // Keeps what was written to the parcel.
    void Keep(const AParcel* parcel);
    // `*parcel` becomes a parcel with the content, positioned behind the descriptor; null if the
    // holder is empty or the descriptor is another one.
    binder_status_t Open(const char* descriptor, ScopedAParcel* parcel) const;

    parcel_stability_t stability_;
    // Never changes once made.
    ContentPointer content_;
};

template <typename T>
binder_status_t AParcelableHolder::setParcelable(const T& parcelable) {
    if (stability_ > T::_aidl_parcelable_stability) return STATUS_BAD_VALUE;
    reset();
    ScopedAParcel parcel = Begin(T::descriptor);
    if (parcel.get() == nullptr) return STATUS_NO_MEMORY;
    const binder_status_t status = parcelable.writeToParcel(parcel.get());
    if (status == STATUS_OK) Keep(parcel.get());
    return status;
}

template <typename T>
binder_status_t AParcelableHolder::setParcelable(const std::shared_ptr<T>& parcelable) {
    if (parcelable != nullptr) return setParcelable(*parcelable);
    reset();
    return STATUS_OK;
}

template <typename T>
binder_status_t AParcelableHolder::getParcelable(std::optional<T>* out) const {
    out->reset();
    ScopedAParcel parcel;
    binder_status_t status = Open(T::descriptor, &parcel);
    if (status != STATUS_OK || parcel.get() == nullptr) return status;
    status = out->emplace().readFromParcel(parcel.get());
    if (status != STATUS_OK) out->reset();
    return status;
}

template <typename T>
binder_status_t AParcelableHolder::getParcelable(std::shared_ptr<T>* out) const {
    out->reset();
    ScopedAParcel parcel;
    binder_status_t status = Open(T::descriptor, &parcel);
    if (status != STATUS_OK || parcel.get() == nullptr) return status;
    auto value = std::make_shared<std::remove_const_t<T>>();
    status = value->readFromParcel(parcel.get());
    if (status == STATUS_OK) *out = std::move(value);
    return status;
}

}  // namespace ndk
