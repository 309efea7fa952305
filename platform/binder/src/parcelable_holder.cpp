#include <android/binder_parcel_utils.h>
#include <android/binder_parcelable_utils.h>
#include <string.h>

#include <new>

#include "parcel.h"

namespace ndk {

namespace {

constexpr uint32_t kMaxDepth = 64;

}  // namespace

namespace internal {

bool EnterParcelable(const AParcel* parcel) {
    if (parcel->depth >= kMaxDepth) return false;
    ++parcel->depth;
    return true;
}

void LeaveParcelable(const AParcel* parcel) {
    --parcel->depth;
}

}  // namespace internal

// In one allocation: this, the objects, the bytes.
struct AParcelableHolder::Content {
    size_t size;
    size_t object_count;

    AParcel::Object* objects() { return reinterpret_cast<AParcel::Object*>(this + 1); }
    const AParcel::Object* objects() const {
        return reinterpret_cast<const AParcel::Object*>(this + 1);
    }
    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(objects() + object_count); }
    const uint8_t* bytes() const {
        return reinterpret_cast<const uint8_t*>(objects() + object_count);
    }
};

void AParcelableHolder::ContentDeleter::operator()(Content* content) const {
    for (size_t i = 0; i < content->object_count; ++i) {
        AIBinder_decStrong(content->objects()[i].binder);
    }
    ::operator delete(content);
}

// Objects have offsets that count from the begin of the bytes.
AParcelableHolder::ContentPointer AParcelableHolder::MakeContent(const AParcel* parcel,
                                                                 size_t start, size_t size) {
    size_t first;
    size_t last;
    parcel->FindObjects(start, size, &first, &last);
    const size_t count = last - first;
    void* memory = ::operator new(sizeof(Content) + count * sizeof(AParcel::Object) + size);
    ContentPointer content(new (memory) Content{size, count});
    for (size_t i = 0; i < count; ++i) {
        const AParcel::Object& object = parcel->objects()[first + i];
        AIBinder_incStrong(object.binder);
        content->objects()[i] = {static_cast<uint32_t>(object.offset - start), object.binder};
    }
    memcpy(content->bytes(), parcel->data() + start, size);
    return content;
}

AParcelableHolder::ContentPointer AParcelableHolder::Copy(const Content* content) {
    if (content == nullptr) return nullptr;
    const size_t total =
            sizeof(Content) + content->object_count * sizeof(AParcel::Object) + content->size;
    void* memory = ::operator new(total);
    memcpy(memory, content, total);
    ContentPointer copy(static_cast<Content*>(memory));
    for (size_t i = 0; i < copy->object_count; ++i) {
        AIBinder_incStrong(copy->objects()[i].binder);
    }
    return copy;
}

AParcelableHolder::AParcelableHolder(const AParcelableHolder& other)
        : stability_(other.stability_), content_(Copy(other.content_.get())) {}

AParcelableHolder& AParcelableHolder::operator=(const AParcelableHolder& other) {
    if (this == &other) return *this;
    stability_ = other.stability_;
    content_ = Copy(other.content_.get());
    return *this;
}

binder_status_t AParcelableHolder::writeToParcel(AParcel* parcel) const {
    binder_status_t status = AParcel_writeInt32(parcel, stability_);
    if (status != STATUS_OK) return status;
    if (content_ == nullptr) return AParcel_writeInt32(parcel, 0);
    status = AParcel_writeInt32(parcel, static_cast<int32_t>(content_->size));
    if (status != STATUS_OK) return status;
    return parcel->WriteWithObjects(content_->bytes(), content_->size, content_->objects(),
                                    content_->object_count, 0);
}

binder_status_t AParcelableHolder::readFromParcel(const AParcel* parcel) {
    reset();
    int32_t stability;
    binder_status_t status = AParcel_readInt32(parcel, &stability);
    if (status != STATUS_OK) return status;
    if (stability != stability_) return STATUS_BAD_VALUE;
    int32_t size;
    status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    // All that is ever written is padded to 4.
    if (size < 0 || size % 4 != 0) return STATUS_BAD_VALUE;
    if (size == 0) return STATUS_OK;
    const size_t start = parcel->position();
    if (parcel->Read(static_cast<size_t>(size)) == nullptr) return STATUS_NOT_ENOUGH_DATA;
    content_ = MakeContent(parcel, start, static_cast<size_t>(size));
    return STATUS_OK;
}

ScopedAParcel AParcelableHolder::Begin(const char* descriptor) {
    ScopedAParcel parcel(AParcel_create());
    const auto length = static_cast<int32_t>(strlen(descriptor));
    if (::AParcel_writeString(parcel.get(), descriptor, length) != STATUS_OK) parcel.set(nullptr);
    return parcel;
}

void AParcelableHolder::Keep(const AParcel* parcel) {
    content_ = MakeContent(parcel, 0, parcel->size());
}

binder_status_t AParcelableHolder::Open(const char* descriptor, ScopedAParcel* parcel) const {
    if (content_ == nullptr) return STATUS_OK;
    ScopedAParcel opened(AParcel_create());
    binder_status_t status = opened.get()->WriteWithObjects(
            content_->bytes(), content_->size, content_->objects(), content_->object_count, 0);
    if (status == STATUS_OK) status = AParcel_setDataPosition(opened.get(), 0);
    std::string held;
    if (status == STATUS_OK) status = AParcel_readString(opened.get(), &held);
    if (status == STATUS_OK && held == descriptor) *parcel = std::move(opened);
    return status;
}

}  // namespace ndk
