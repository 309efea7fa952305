#include <string.h>

#include "parcel.h"
#include "parcel_text.h"

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr) {
        return length == -1 ? AParcel_writeInt32(parcel, -1) : STATUS_BAD_VALUE;
    }
    if (length < 0) return STATUS_BAD_VALUE;
    const auto size = static_cast<size_t>(length);
    if (size > AParcel::kMaxSize) return STATUS_NO_MEMORY;
    const size_t units = host::Utf16Length(string, size);
    binder_status_t status = AParcel_writeInt32(parcel, static_cast<int32_t>(units));
    if (status != STATUS_OK) return status;
    uint8_t* place = parcel->WriteInPlace((units + 1) * sizeof(char16_t), &status);
    if (place == nullptr) return status;
    host::WriteUtf16(string, size, place);
    memset(place + units * sizeof(char16_t), 0, sizeof(char16_t));
    return STATUS_OK;
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    int32_t length;
    const binder_status_t status = AParcel_readInt32(parcel, &length);
    if (status != STATUS_OK) return status;
    if (length == -1)
        return allocator(stringData, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    if (length < 0) return STATUS_BAD_VALUE;
    const auto units = static_cast<size_t>(length);
    const uint8_t* text = parcel->Read((units + 1) * sizeof(char16_t));
    if (text == nullptr) return STATUS_NOT_ENOUGH_DATA;
    if (text[units * 2] != 0 || text[units * 2 + 1] != 0) return STATUS_BAD_VALUE;
    // A parcel is small enough for three bytes per unit to fit.
    const size_t bytes = host::Utf8Length(text, units);
    char* buffer = nullptr;
    if (!allocator(stringData, static_cast<int32_t>(bytes) + 1, &buffer) || buffer == nullptr) {
        return STATUS_NO_MEMORY;
    }
    host::WriteUtf8(text, units, buffer);
    buffer[bytes] = '\0';
    return STATUS_OK;
}
