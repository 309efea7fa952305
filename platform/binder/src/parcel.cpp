#include "parcel.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <utility>

static_assert(std::endian::native == std::endian::little,
              "values are copied as they lie in memory");

namespace {

constexpr size_t kAlignment = 4;
constexpr size_t kFirstCapacity = 256;
// A reset parcel keeps no larger buffer.
constexpr size_t kKeptCapacity = 64 * 1024;

constexpr size_t Padded(size_t size) {
    return (size + kAlignment - 1) & ~(kAlignment - 1);
}

// True if each object's index stands where the object says.
bool AreInPlace(const uint8_t* data, size_t size, const std::vector<AParcel::Object>& objects) {
    size_t next = 0;
    for (size_t i = 0; i < objects.size(); ++i) {
        const size_t offset = objects[i].offset;
        if (objects[i].binder == nullptr || offset % kAlignment != 0 || offset < next) return false;
        if (size < sizeof(int32_t) || offset > size - sizeof(int32_t)) return false;
        int32_t index;
        memcpy(&index, data + offset, sizeof(index));
        if (index < 0 || static_cast<size_t>(index) != i) return false;
        next = offset + sizeof(int32_t);
    }
    return true;
}

}  // namespace

AParcel::~AParcel() {
    ReleaseObjects();
    free(data_);
}

bool AParcel::Assign(const uint8_t* data, size_t size, std::vector<Object>&& objects) {
    Reset();
    // From here on the parcel releases them.
    std::vector<Object> taken = std::move(objects);
    bool good = Reserve(size);
    if (good && size > 0) memcpy(data_, data, size);
    // The copy is checked: what it was made of may be shared with whoever sent it.
    good = good && AreInPlace(data_, size, taken);
    size_ = good ? size : 0;
    objects_ = std::move(taken);
    if (!good) {
        std::erase_if(objects_, [](const Object& object) { return object.binder == nullptr; });
        ReleaseObjects();
    }
    return good;
}

void AParcel::Reset() {
    size_ = 0;
    position_ = 0;
    depth = 0;
    binder = nullptr;
    ReleaseObjects();
    if (capacity_ > kKeptCapacity) {
        free(data_);
        data_ = nullptr;
        capacity_ = 0;
    }
}

void AParcel::ReleaseObjects() {
    if (objects_.empty()) return;
    // The end of an object may run any code; the parcel is already empty then.
    std::vector<Object> dropped = std::move(objects_);
    objects_.clear();
    for (const Object& object : dropped) {
        AIBinder_decStrong(object.binder);
    }
    dropped.clear();
    if (objects_.empty()) objects_.swap(dropped);
}

bool AParcel::Reserve(size_t size) {
    if (size <= capacity_) return true;
    if (size > kMaxSize) return false;
    const size_t wanted = std::max({size, capacity_ * 2, kFirstCapacity});
    void* grown = realloc(data_, wanted);
    if (grown == nullptr) return false;
    data_ = static_cast<uint8_t*>(grown);
    capacity_ = wanted;
    return true;
}

binder_status_t AParcel::SetPosition(size_t position) const {
    if (position > size_ || (position % kAlignment != 0 && position != size_)) {
        return STATUS_BAD_VALUE;
    }
    position_ = position;
    return STATUS_OK;
}

bool AParcel::HoldsObjectIn(size_t start, size_t size) const {
    if (objects_.empty() || objects_.back().offset + sizeof(int32_t) <= start) return false;
    const auto first = std::partition_point(
            objects_.begin(), objects_.end(),
            [start](const Object& object) { return object.offset + sizeof(int32_t) <= start; });
    return first->offset < start + size;
}

uint8_t* AParcel::WriteInPlace(size_t size, binder_status_t* status) {
    *status = STATUS_NO_MEMORY;
    if (size > kMaxSize) return nullptr;
    const size_t padded = Padded(size);
    const size_t end = position_ + padded;
    if (position_ % kAlignment != 0 || HoldsObjectIn(position_, padded)) {
        *status = STATUS_BAD_VALUE;
        return nullptr;
    }
    if (end > kMaxSize || !Reserve(end)) return nullptr;
    uint8_t* place = data_ + position_;
    // Nothing of what the memory held before leaves the process.
    if (padded != size) memset(place + size, 0, padded - size);
    position_ = end;
    size_ = std::max(size_, end);
    *status = STATUS_OK;
    return place;
}

binder_status_t AParcel::Write(const void* bytes, size_t size) {
    binder_status_t status;
    uint8_t* place = WriteInPlace(size, &status);
    if (place != nullptr && size > 0) memcpy(place, bytes, size);
    return status;
}

binder_status_t AParcel::WriteBinder(AIBinder* written) {
    if (written == nullptr) return Write(&kNullBinder, sizeof(kNullBinder));
    const int32_t first = 0;
    const Object object{0, written};
    return WriteWithObjects(reinterpret_cast<const uint8_t*>(&first), sizeof(first), &object, 1, 0);
}

binder_status_t AParcel::WriteWithObjects(const uint8_t* bytes, size_t size, const Object* objects,
                                          size_t count, size_t base) {
    const size_t start = position_;
    // Offsets ascend, and an index is never changed once written: objects go behind all others.
    if (count > 0 && !objects_.empty() && objects_.back().offset >= start) return STATUS_BAD_VALUE;
    const binder_status_t status = Write(bytes, size);
    if (status != STATUS_OK) return status;
    for (size_t i = 0; i < count; ++i) {
        const size_t offset = objects[i].offset - base + start;
        const auto index = static_cast<int32_t>(objects_.size());
        memcpy(data_ + offset, &index, sizeof(index));
        AIBinder_incStrong(objects[i].binder);
        objects_.push_back({static_cast<uint32_t>(offset), objects[i].binder});
    }
    return STATUS_OK;
}

const uint8_t* AParcel::Read(size_t size) const {
    if (size > left()) return nullptr;
    const uint8_t* place = data_ + position_;
    position_ += std::min(Padded(size), left());
    return place;
}

binder_status_t AParcel::ReadBinder(AIBinder** read) const {
    const size_t offset = position_;
    const uint8_t* place = Read(sizeof(int32_t));
    if (place == nullptr) return STATUS_NOT_ENOUGH_DATA;
    int32_t index;
    memcpy(&index, place, sizeof(index));
    *read = nullptr;
    if (index == kNullBinder) return STATUS_OK;
    // A number that somebody wrote as such opens no object.
    if (index < 0 || static_cast<size_t>(index) >= objects_.size()) return STATUS_BAD_TYPE;
    const Object& object = objects_[static_cast<size_t>(index)];
    if (object.offset != offset) return STATUS_BAD_TYPE;
    AIBinder_incStrong(object.binder);
    *read = object.binder;
    return STATUS_OK;
}

void AParcel::FindObjects(size_t start, size_t size, size_t* first, size_t* last) const {
    const auto before = [](const Object& object, size_t offset) { return object.offset < offset; };
    const auto begin = std::lower_bound(objects_.begin(), objects_.end(), start, before);
    const size_t end = size < sizeof(int32_t) ? start : start + size - sizeof(int32_t) + 1;
    const auto behind = std::lower_bound(begin, objects_.end(), end, before);
    *first = static_cast<size_t>(begin - objects_.begin());
    *last = static_cast<size_t>(behind - objects_.begin());
}
