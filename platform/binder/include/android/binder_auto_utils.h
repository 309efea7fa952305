// Owners of the objects behind the C functions: each drops or deletes what it holds when it ends.
//
// Threads: the owners are plain values without locks; an owner that two threads use needs a lock of
// theirs, what it owns follows its own header.

#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <cstddef>
#include <string>
#include <utility>

namespace ndk {

// A strong reference to a binder, or none.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    // Null may be passed as such where a binder is asked for.
    // NOLINTNEXTLINE(google-explicit-constructor)
    SpAIBinder(std::nullptr_t) {}
    // Takes over a reference that the caller has.
    explicit SpAIBinder(AIBinder* binder) : binder_(binder) {}
    SpAIBinder(const SpAIBinder& other) : binder_(other.binder_) { AIBinder_incStrong(binder_); }
    SpAIBinder(SpAIBinder&& other) noexcept : binder_(std::exchange(other.binder_, nullptr)) {}
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        SpAIBinder copy(other);
        std::swap(binder_, copy.binder_);
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        if (this != &other) set(std::exchange(other.binder_, nullptr));
        return *this;
    }
    SpAIBinder& operator=(std::nullptr_t) {
        set(nullptr);
        return *this;
    }

    // Takes over a reference that the caller has, then drops the one held before.
    void set(AIBinder* binder) {
        AIBinder* old = std::exchange(binder_, binder);
        if (old != nullptr) AIBinder_decStrong(old);
    }
    // Stays this owner's.
    AIBinder* get() const { return binder_; }
    // For functions that give a reference through a pointer; what is held is dropped first.
    AIBinder** getR() {
        set(nullptr);
        return &binder_;
    }
    explicit operator bool() const { return binder_ != nullptr; }

  private:
    AIBinder* binder_ = nullptr;
};

inline bool operator==(const SpAIBinder& lhs, const SpAIBinder& rhs) {
    return lhs.get() == rhs.get();
}
inline bool operator!=(const SpAIBinder& lhs, const SpAIBinder& rhs) {
    return !(lhs == rhs);
}
inline bool operator<(const SpAIBinder& lhs, const SpAIBinder& rhs) {
    return AIBinder_lt(lhs.get(), rhs.get());
}
inline bool operator>(const SpAIBinder& lhs, const SpAIBinder& rhs) {
    return rhs < lhs;
}
inline bool operator<=(const SpAIBinder& lhs, const SpAIBinder& rhs) {
    return !(rhs < lhs);
}
inline bool operator>=(const SpAIBinder& lhs, const SpAIBinder& rhs) {
    return !(lhs < rhs);
}

namespace impl {

// Sole owner of a `T` that `Destroy` ends; `DEFAULT` stands for nothing.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
  public:
    explicit ScopedAResource(T value = DEFAULT) : value_(value) {}
    ScopedAResource(ScopedAResource&& other) noexcept
            : value_(std::exchange(other.value_, DEFAULT)) {}
    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;
    ~ScopedAResource() { set(DEFAULT); }

    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) set(std::exchange(other.value_, DEFAULT));
        return *this;
    }

    // Takes `value` over, then ends what was held.
    void set(T value) {
        T old = std::exchange(value_, value);
        if (old != DEFAULT) Destroy(old);
    }
    // Stays this owner's.
    T get() const { return value_; }
    // Leaves the value to the caller.
    [[nodiscard]] T release() { return std::exchange(value_, DEFAULT); }
    // For functions that take the value over through a pointer, or give one to an owner of nothing:
    // what is held is not ended here.
    T* getR() { return &value_; }

  private:
    T value_;
};

}  // namespace impl

class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
  public:
    explicit ScopedAParcel(AParcel* parcel = nullptr) : ScopedAResource(parcel) {}
    ScopedAParcel(ScopedAParcel&&) = default;
    ScopedAParcel& operator=(ScopedAParcel&&) = default;
};

// What an interface method answers. A status that is absent (default-constructed or moved from)
// counts as failed: EX_TRANSACTION_FAILED with STATUS_UNKNOWN_ERROR.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const {
        return get() == nullptr ? EX_TRANSACTION_FAILED : AStatus_getExceptionCode(get());
    }
    int32_t getServiceSpecificError() const {
        return get() == nullptr ? 0 : AStatus_getServiceSpecificError(get());
    }
    binder_status_t getStatus() const {
        return get() == nullptr ? STATUS_UNKNOWN_ERROR : AStatus_getStatus(get());
    }
    // Never null; ends with the status.
    const char* getMessage() const { return get() == nullptr ? "" : AStatus_getMessage(get()); }
    std::string getDescription() const {
        if (get() == nullptr) return "(no status)";
        const char* text = AStatus_getDescription(get());
        std::string description(text);
        AStatus_deleteDescription(text);
        return description;
    }
};

class ScopedAIBinder_DeathRecipient
        : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                       nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* recipient = nullptr)
            : ScopedAResource(recipient) {}
    ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
    ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

class ScopedAIBinder_Weak
        : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak = nullptr) : ScopedAResource(weak) {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;

    // Null if the object has no strong reference left, or none is known.
    SpAIBinder promote() const {
        return get() == nullptr ? SpAIBinder() : SpAIBinder(AIBinder_Weak_promote(get()));
    }
};

}  // namespace ndk
