#include <string.h>

#include <type_traits>

#include "parcel.h"

namespace {

// The length in front of an array: STATUS_OK with -1 for null, or with a length whose elements of
// at least `element_size` bytes fit in what is left.
binder_status_t ReadLength(const AParcel* parcel, size_t element_size, int32_t* length) {
    const binder_status_t status = AParcel_readInt32(parcel, length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    if (*length == -1) return STATUS_OK;
    const bool fits = static_cast<size_t>(*length) <= parcel->left() / element_size;
    return fits ? STATUS_OK : STATUS_NOT_ENOUGH_DATA;
}

binder_status_t WriteLength(AParcel* parcel, const void* data, int32_t length) {
    if (length < -1 || (data == nullptr && length > 0)) return STATUS_BAD_VALUE;
    return AParcel_writeInt32(parcel, length);
}

binder_status_t Refused(int32_t length) {
    return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
}

// Elements that lie in the parcel as they do in memory.
template <typename T>
binder_status_t WritePacked(AParcel* parcel, const T* data, int32_t length) {
    const binder_status_t status = WriteLength(parcel, data, length);
    if (status != STATUS_OK || length <= 0) return status;
    return parcel->Write(data, static_cast<size_t>(length) * sizeof(T));
}

template <typename T>
binder_status_t ReadPacked(const AParcel* parcel, void* data,
                           bool (*allocator)(void*, int32_t, T**)) {
    int32_t length;
    const binder_status_t status = ReadLength(parcel, sizeof(T), &length);
    if (status != STATUS_OK) return status;
    T* buffer = nullptr;
    if (!allocator(data, length, length < 0 ? nullptr : &buffer)) return Refused(length);
    if (length <= 0) return STATUS_OK;
    if (buffer == nullptr) return STATUS_NO_MEMORY;
    const size_t size = static_cast<size_t>(length) * sizeof(T);
    memcpy(buffer, parcel->Read(size), size);
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* data, int32_t length) {
    return WritePacked(parcel, data, length);
}
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* data, int32_t length) {
    return WritePacked(parcel, data, length);
}
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* data, int32_t length) {
    return WritePacked(parcel, data, length);
}
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* data, int32_t length) {
    return WritePacked(parcel, data, length);
}
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* data, int32_t length) {
    return WritePacked(parcel, data, length);
}

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* data,
                                       AParcel_int32ArrayAllocator allocator) {
    return ReadPacked(parcel, data, allocator);
}
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* data,
                                       AParcel_int64ArrayAllocator allocator) {
    return ReadPacked(parcel, data, allocator);
}
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* data,
                                       AParcel_floatArrayAllocator allocator) {
    return ReadPacked(parcel, data, allocator);
}
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* data,
                                        AParcel_doubleArrayAllocator allocator) {
    return ReadPacked(parcel, data, allocator);
}
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* data,
                                      AParcel_byteArrayAllocator allocator) {
    return ReadPacked(parcel, data, allocator);
}

binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* data, int32_t length) {
    binder_status_t status = WriteLength(parcel, data, length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = AParcel_writeChar(parcel, data[i]);
    }
    return status;
}

binder_status_t AParcel_readCharArray(const AParcel* parcel, void* data,
                                      AParcel_charArrayAllocator allocator) {
    int32_t length;
    binder_status_t status = ReadLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    char16_t* buffer = nullptr;
    if (!allocator(data, length, length < 0 ? nullptr : &buffer)) return Refused(length);
    if (length > 0 && buffer == nullptr) return STATUS_NO_MEMORY;
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = AParcel_readChar(parcel, &buffer[i]);
    }
    return status;
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* data, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    binder_status_t status = WriteLength(parcel, data, length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = AParcel_writeBool(parcel, getter(data, static_cast<size_t>(i)));
    }
    return status;
}

binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* data,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) {
    int32_t length;
    binder_status_t status = ReadLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(data, length)) return Refused(length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        bool value = false;
        status = AParcel_readBool(parcel, &value);
        if (status == STATUS_OK) setter(data, static_cast<size_t>(i), value);
    }
    return status;
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* data, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    binder_status_t status = WriteLength(parcel, data, length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        int32_t size = -1;
        const char* string = getter(data, static_cast<size_t>(i), &size);
        status = AParcel_writeString(parcel, string, size);
    }
    return status;
}

namespace {

// One element of a string array on its way to the array's own allocator.
struct StringElement {
    void* array;
    size_t index;
    AParcel_stringArrayElementAllocator allocator;

    static bool Allocate(void* data, int32_t length, char** buffer) {
        auto* element = static_cast<StringElement*>(data);
        return element->allocator(element->array, element->index, length, buffer);
    }
};

}  // namespace

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* data,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    int32_t length;
    binder_status_t status = ReadLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(data, length)) return Refused(length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        StringElement element{data, static_cast<size_t>(i), elementAllocator};
        status = AParcel_readString(parcel, &element, StringElement::Allocate);
    }
    return status;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* data, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    // What stands for the array is the callbacks' matter and may be null.
    if (length < -1) return STATUS_BAD_VALUE;
    binder_status_t status = AParcel_writeInt32(parcel, length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = elementWriter(parcel, data, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* data,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    int32_t length;
    binder_status_t status = ReadLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(data, length)) return Refused(length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = elementReader(parcel, data, static_cast<size_t>(i));
    }
    return status;
}
