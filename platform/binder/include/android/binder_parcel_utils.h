// Reading and writing C++ values of every type that an interface can name; generated code is made
// of these calls.
//
// Threads and statuses: as <android/binder_parcel.h> has them. Null where a value is required, in
// either direction, is STATUS_UNEXPECTED_NULL. After a failed read the target is valid but of no
// particular value.
//
// The types: bool, int8_t, uint8_t (bytes), char16_t, int32_t, int64_t, float, double, enumerations
// over those, std::string, SpAIBinder, std::shared_ptr of an interface, parcelables, and
// std::vector of all these. What may be null is a std::optional of a string, a parcelable or a
// vector; the two kinds of pointers are their own optional. In a std::optional<std::vector<...>>
// the elements may be null as well.

#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcelable_utils.h>
#include <android/binder_status.h>
#include <stdint.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace ndk {

template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

namespace internal {

template <typename T>
constexpr bool is_vector = false;
template <typename T, typename A>
constexpr bool is_vector<std::vector<T, A>> = true;

template <typename T>
constexpr bool is_optional = false;
template <typename T>
constexpr bool is_optional<std::optional<T>> = true;

template <typename T>
constexpr bool is_interface_pointer = false;
template <typename T>
constexpr bool is_interface_pointer<std::shared_ptr<T>> = std::is_base_of_v<ICInterface, T>;

// The type whose array functions carry vectors of T, void if the elements go one by one.
template <typename T>
struct ArrayWire {
    using type = std::conditional_t<
            std::is_same_v<T, int32_t> || std::is_same_v<T, int64_t> || std::is_same_v<T, float> ||
                    std::is_same_v<T, double> || std::is_same_v<T, char16_t>,
            T,
            std::conditional_t<std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>, int8_t,
                               void>>;
};
template <typename T>
requires std::is_enum_v<T>
struct ArrayWire<T> {
    using type = typename ArrayWire<std::underlying_type_t<T>>::type;
};

inline binder_status_t WriteArray(AParcel* parcel, const int32_t* data, int32_t length) {
    return AParcel_writeInt32Array(parcel, data, length);
}
inline binder_status_t WriteArray(AParcel* parcel, const int64_t* data, int32_t length) {
    return AParcel_writeInt64Array(parcel, data, length);
}
inline binder_status_t WriteArray(AParcel* parcel, const float* data, int32_t length) {
    return AParcel_writeFloatArray(parcel, data, length);
}
inline binder_status_t WriteArray(AParcel* parcel, const double* data, int32_t length) {
    return AParcel_writeDoubleArray(parcel, data, length);
}
inline binder_status_t WriteArray(AParcel* parcel, const char16_t* data, int32_t length) {
    return AParcel_writeCharArray(parcel, data, length);
}
inline binder_status_t WriteArray(AParcel* parcel, const int8_t* data, int32_t length) {
    return AParcel_writeByteArray(parcel, data, length);
}

template <typename Wire>
using ArrayAllocator = bool (*)(void* arrayData, int32_t length, Wire** outBuffer);

inline binder_status_t ReadArray(const AParcel* parcel, void* data,
                                 ArrayAllocator<int32_t> allocator) {
    return AParcel_readInt32Array(parcel, data, allocator);
}
inline binder_status_t ReadArray(const AParcel* parcel, void* data,
                                 ArrayAllocator<int64_t> allocator) {
    return AParcel_readInt64Array(parcel, data, allocator);
}
inline binder_status_t ReadArray(const AParcel* parcel, void* data,
                                 ArrayAllocator<float> allocator) {
    return AParcel_readFloatArray(parcel, data, allocator);
}
inline binder_status_t ReadArray(const AParcel* parcel, void* data,
                                 ArrayAllocator<double> allocator) {
    return AParcel_readDoubleArray(parcel, data, allocator);
}
inline binder_status_t ReadArray(const AParcel* parcel, void* data,
                                 ArrayAllocator<char16_t> allocator) {
    return AParcel_readCharArray(parcel, data, allocator);
}
inline binder_status_t ReadArray(const AParcel* parcel, void* data,
                                 ArrayAllocator<int8_t> allocator) {
    return AParcel_readByteArray(parcel, data, allocator);
}

template <typename T, typename Wire>
bool AllocateVector(void* vector, int32_t length, Wire** buffer) {
    if (length < 0) return false;
    auto* target = static_cast<std::vector<T>*>(vector);
    target->resize(static_cast<size_t>(length));
    *buffer = reinterpret_cast<Wire*>(target->data());
    return true;
}

inline bool GetBool(const void* vector, size_t index) {
    return (*static_cast<const std::vector<bool>*>(vector))[index];
}
inline bool AllocateBools(void* vector, int32_t length) {
    if (length < 0) return false;
    static_cast<std::vector<bool>*>(vector)->resize(static_cast<size_t>(length));
    return true;
}
inline void SetBool(void* vector, size_t index, bool value) {
    (*static_cast<std::vector<bool>*>(vector))[index] = value;
}

inline bool AllocateString(void* string, int32_t length, char** buffer) {
    if (length < 1) return false;
    auto* target = static_cast<std::string*>(string);
    // The terminating zero, which the reader writes too, is the string's own.
    target->resize(static_cast<size_t>(length) - 1);
    *buffer = target->data();
    return true;
}
inline bool AllocateOptionalString(void* string, int32_t length, char** buffer) {
    auto* target = static_cast<std::optional<std::string>*>(string);
    if (length < 0) {
        target->reset();
        return true;
    }
    return AllocateString(&target->emplace(), length, buffer);
}

// The number of elements that follows; -1 for null. Each takes at least 4 bytes.
inline binder_status_t ReadLength(const AParcel* parcel, int32_t* length) {
    if (binder_status_t status = AParcel_readInt32(parcel, length); status != STATUS_OK) {
        return status;
    }
    if (*length < -1) return STATUS_BAD_VALUE;
    const int32_t left = AParcel_getDataSize(parcel) - AParcel_getDataPosition(parcel);
    return *length > left / 4 ? STATUS_NOT_ENOUGH_DATA : STATUS_OK;
}

template <bool kNullableElements, typename T>
binder_status_t WriteElements(AParcel* parcel, const std::vector<T>& vector) {
    constexpr bool kNullable = kNullableElements || is_optional<T>;
    binder_status_t status = AParcel_writeInt32(parcel, static_cast<int32_t>(vector.size()));
    for (auto element = vector.begin(); status == STATUS_OK && element != vector.end(); ++element) {
        if constexpr (kNullable) {
            status = AParcel_writeNullableData(parcel, *element);
        } else {
            status = AParcel_writeData(parcel, *element);
        }
    }
    return status;
}

template <bool kNullableElements, typename T>
binder_status_t WriteVector(AParcel* parcel, const std::vector<T>& vector) {
    using Wire = typename ArrayWire<T>::type;
    if (vector.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    const auto length = static_cast<int32_t>(vector.size());
    if constexpr (std::is_same_v<T, bool>) {
        return AParcel_writeBoolArray(parcel, &vector, length, GetBool);
    } else if constexpr (std::is_void_v<Wire>) {
        return WriteElements<kNullableElements>(parcel, vector);
    } else {
        return WriteArray(parcel, reinterpret_cast<const Wire*>(vector.data()), length);
    }
}

template <bool kNullableElements, typename T>
binder_status_t ReadElements(const AParcel* parcel, std::vector<T>* vector) {
    constexpr bool kNullable = kNullableElements || is_optional<T>;
    // Grown as the elements turn out to be there: a small message must not claim much memory.
    constexpr int32_t kFirstReserve = 64;
    vector->clear();
    int32_t length;
    binder_status_t status = ReadLength(parcel, &length);
    if (status == STATUS_OK && length < 0) return STATUS_UNEXPECTED_NULL;
    if (status == STATUS_OK) vector->reserve(std::min(length, kFirstReserve));
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        T& element = vector->emplace_back();
        if constexpr (kNullable) {
            status = AParcel_readNullableData(parcel, &element);
        } else {
            status = AParcel_readData(parcel, &element);
        }
    }
    return status;
}

template <bool kNullableElements, typename T>
binder_status_t ReadVector(const AParcel* parcel, std::vector<T>* vector) {
    using Wire = typename ArrayWire<T>::type;
    if constexpr (std::is_same_v<T, bool>) {
        return AParcel_readBoolArray(parcel, vector, AllocateBools, SetBool);
    } else if constexpr (std::is_void_v<Wire>) {
        return ReadElements<kNullableElements>(parcel, vector);
    } else {
        return ReadArray(parcel, vector, AllocateVector<T, Wire>);
    }
}

}  // namespace internal

inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& string) {
    if (string.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return ::AParcel_writeString(parcel, string.data(), static_cast<int32_t>(string.size()));
}
inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* string) {
    return ::AParcel_readString(parcel, string, internal::AllocateString);
}
inline binder_status_t AParcel_writeString(AParcel* parcel,
                                           const std::optional<std::string>& string) {
    return string.has_value() ? AParcel_writeString(parcel, *string)
                              : ::AParcel_writeString(parcel, nullptr, -1);
}
inline binder_status_t AParcel_readString(const AParcel* parcel,
                                          std::optional<std::string>* string) {
    return ::AParcel_readString(parcel, string, internal::AllocateOptionalString);
}

inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel,
                                                         const SpAIBinder& binder) {
    return AParcel_writeStrongBinder(parcel, binder.get());
}
inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel, SpAIBinder* binder) {
    AIBinder* read = nullptr;
    const binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status == STATUS_OK) binder->set(read);
    return status;
}
inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel,
                                                         const SpAIBinder& binder) {
    return binder.get() == nullptr ? STATUS_UNEXPECTED_NULL
                                   : AParcel_writeStrongBinder(parcel, binder.get());
}
inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel, SpAIBinder* binder) {
    const binder_status_t status = AParcel_readNullableStrongBinder(parcel, binder);
    return status == STATUS_OK && binder->get() == nullptr ? STATUS_UNEXPECTED_NULL : status;
}

// Parcelables: 1 and the fields, or 0 for null.

template <typename P>
binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& parcelable) {
    const binder_status_t status = AParcel_writeInt32(parcel, 1);
    return status == STATUS_OK ? parcelable.writeToParcel(parcel) : status;
}

template <typename P>
binder_status_t AParcel_readParcelable(const AParcel* parcel, P* parcelable) {
    int32_t present;
    binder_status_t status = AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK) return status;
    if (present == 0) return STATUS_UNEXPECTED_NULL;
    if (!internal::EnterParcelable(parcel)) return STATUS_BAD_VALUE;
    status = parcelable->readFromParcel(parcel);
    internal::LeaveParcelable(parcel);
    return status;
}

template <typename P>
binder_status_t AParcel_writeNullableParcelable(AParcel* parcel,
                                                const std::optional<P>& parcelable) {
    return parcelable.has_value() ? AParcel_writeParcelable(parcel, *parcelable)
                                  : AParcel_writeInt32(parcel, 0);
}

template <typename P>
binder_status_t AParcel_readNullableParcelable(const AParcel* parcel,
                                               std::optional<P>* parcelable) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t present;
    binder_status_t status = AParcel_readInt32(parcel, &present);
    parcelable->reset();
    if (status != STATUS_OK || present == 0) return status;
    status = AParcel_setDataPosition(parcel, start);
    return status == STATUS_OK ? AParcel_readParcelable(parcel, &parcelable->emplace()) : status;
}

template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<T>& vector) {
    return internal::WriteVector<false>(parcel, vector);
}
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<T>* vector) {
    return internal::ReadVector<false>(parcel, vector);
}
template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::optional<std::vector<T>>& vector) {
    return vector.has_value() ? internal::WriteVector<true>(parcel, *vector)
                              : AParcel_writeInt32(parcel, -1);
}
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::optional<std::vector<T>>* vector) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t length;
    binder_status_t status = AParcel_readInt32(parcel, &length);
    vector->reset();
    if (status != STATUS_OK || length == -1) return status;
    status = AParcel_setDataPosition(parcel, start);
    return status == STATUS_OK ? internal::ReadVector<true>(parcel, &vector->emplace()) : status;
}

// The size of an array that the callee is to fill: nothing of its content is sent.
template <typename T>
binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& vector) {
    if (vector.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeInt32(parcel, static_cast<int32_t>(vector.size()));
}
template <typename T>
binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                        const std::optional<std::vector<T>>& vector) {
    return vector.has_value() ? AParcel_writeVectorSize(parcel, *vector)
                              : AParcel_writeInt32(parcel, -1);
}

// STATUS_NO_MEMORY: more elements than a reply could carry.
template <typename T>
binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* vector) {
    constexpr int32_t kMostElements = 256 * 1024;
    int32_t size;
    const binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    if (size == -1) return STATUS_UNEXPECTED_NULL;
    if (size < 0) return STATUS_BAD_VALUE;
    if (size > kMostElements) return STATUS_NO_MEMORY;
    vector->resize(static_cast<size_t>(size));
    return STATUS_OK;
}
template <typename T>
binder_status_t AParcel_resizeVector(const AParcel* parcel, std::optional<std::vector<T>>* vector) {
    const binder_status_t status = AParcel_resizeVector(parcel, &vector->emplace());
    if (status == STATUS_OK) return status;
    vector->reset();
    return status == STATUS_UNEXPECTED_NULL ? STATUS_OK : status;
}

template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return AParcel_writeBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>) {
        return AParcel_writeByte(parcel, static_cast<int8_t>(value));
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return AParcel_writeChar(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_writeInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_writeInt64(parcel, value);
    } else if constexpr (std::is_same_v<T, float>) {
        return AParcel_writeFloat(parcel, value);
    } else if constexpr (std::is_same_v<T, double>) {
        return AParcel_writeDouble(parcel, value);
    } else if constexpr (std::is_enum_v<T>) {
        return AParcel_writeData(parcel, static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_same_v<T, std::string>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_writeRequiredStrongBinder(parcel, value);
    } else if constexpr (internal::is_interface_pointer<T>) {
        if (value == nullptr) return STATUS_UNEXPECTED_NULL;
        return T::element_type::writeToParcel(parcel, value);
    } else if constexpr (internal::is_vector<T>) {
        return AParcel_writeVector(parcel, value);
    } else {
        return AParcel_writeParcelable(parcel, value);
    }
}

template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
    if constexpr (std::is_same_v<T, bool>) {
        return AParcel_readBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>) {
        return AParcel_readByte(parcel, reinterpret_cast<int8_t*>(value));
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return AParcel_readChar(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_readInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_readInt64(parcel, value);
    } else if constexpr (std::is_same_v<T, float>) {
        return AParcel_readFloat(parcel, value);
    } else if constexpr (std::is_same_v<T, double>) {
        return AParcel_readDouble(parcel, value);
    } else if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> number;
        const binder_status_t status = AParcel_readData(parcel, &number);
        if (status == STATUS_OK) *value = static_cast<T>(number);
        return status;
    } else if constexpr (std::is_same_v<T, std::string>) {
        return AParcel_readString(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_readRequiredStrongBinder(parcel, value);
    } else if constexpr (internal::is_interface_pointer<T>) {
        const binder_status_t status = T::element_type::readFromParcel(parcel, value);
        return status == STATUS_OK && *value == nullptr ? STATUS_UNEXPECTED_NULL : status;
    } else if constexpr (internal::is_vector<T>) {
        return AParcel_readVector(parcel, value);
    } else {
        return AParcel_readParcelable(parcel, value);
    }
}

template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value) {
    if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_writeNullableStrongBinder(parcel, value);
    } else if constexpr (internal::is_interface_pointer<T>) {
        return T::element_type::writeToParcel(parcel, value);
    } else if constexpr (!internal::is_optional<T>) {
        return AParcel_writeData(parcel, value);
    } else if constexpr (std::is_same_v<typename T::value_type, std::string>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (internal::is_vector<typename T::value_type>) {
        return AParcel_writeVector(parcel, value);
    } else {
        return AParcel_writeNullableParcelable(parcel, value);
    }
}

template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value) {
    if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_readNullableStrongBinder(parcel, value);
    } else if constexpr (internal::is_interface_pointer<T>) {
        return T::element_type::readFromParcel(parcel, value);
    } else if constexpr (!internal::is_optional<T>) {
        return AParcel_readData(parcel, value);
    } else if constexpr (std::is_same_v<typename T::value_type, std::string>) {
        return AParcel_readString(parcel, value);
    } else if constexpr (internal::is_vector<typename T::value_type>) {
        return AParcel_readVector(parcel, value);
    } else {
        return AParcel_readNullableParcelable(parcel, value);
    }
}

}  // namespace ndk
