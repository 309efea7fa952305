#include <string.h>

#include "parcel.h"

namespace {

template <typename T>
binder_status_t WriteValue(AParcel* parcel, T value) {
    return parcel->Write(&value, sizeof(value));
}

template <typename T>
binder_status_t ReadValue(const AParcel* parcel, T* value) {
    const uint8_t* bytes = parcel->Read(sizeof(T));
    if (bytes == nullptr) return STATUS_NOT_ENOUGH_DATA;
    memcpy(value, bytes, sizeof(T));
    return STATUS_OK;
}

// Types smaller than 4 bytes travel as an int32.
template <typename T>
binder_status_t ReadNarrow(const AParcel* parcel, T* value) {
    int32_t wide;
    const binder_status_t status = ReadValue(parcel, &wide);
    if (status == STATUS_OK) *value = static_cast<T>(wide);
    return status;
}

}  // namespace

AParcel* AParcel_create() {
    return host::ObtainParcel();
}

void AParcel_delete(AParcel* parcel) {
    host::RecycleParcel(parcel);
}

binder_status_t AParcel_reset(AParcel* parcel) {
    parcel->Reset();
    return STATUS_OK;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    return position < 0 ? STATUS_BAD_VALUE : parcel->SetPosition(static_cast<size_t>(position));
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position());
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->size());
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
    if (start < 0 || size < 0 || start % 4 != 0) return STATUS_BAD_VALUE;
    const auto begin = static_cast<size_t>(start);
    const auto length = static_cast<size_t>(size);
    if (begin > from->size() || length > from->size() - begin) return STATUS_BAD_VALUE;
    if (from == to) {
        // The source would move while it grows.
        AParcel copy;
        const binder_status_t status = AParcel_appendFrom(from, &copy, start, size);
        return status == STATUS_OK ? AParcel_appendFrom(&copy, to, 0, size) : status;
    }
    size_t first;
    size_t last;
    from->FindObjects(begin, length, &first, &last);
    return to->WriteWithObjects(from->data() + begin, length, from->objects().data() + first,
                                last - first, begin);
}

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    if (!parcel->objects().empty()) return STATUS_INVALID_OPERATION;
    if (start > parcel->size() || len > parcel->size() - start) return STATUS_BAD_VALUE;
    if (len > 0) memcpy(buffer, parcel->data() + start, len);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    return parcel->Assign(buffer, len, {}) ? STATUS_OK : STATUS_NO_MEMORY;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return WriteValue(parcel, value);
}
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return WriteValue(parcel, value);
}
binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return WriteValue(parcel, value);
}
binder_status_t AParcel_writeDouble(AParcel* parcel, double value) {
    return WriteValue(parcel, value);
}
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return WriteValue<int32_t>(parcel, value ? 1 : 0);
}
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) {
    return WriteValue<int32_t>(parcel, value);
}
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return WriteValue<int32_t>(parcel, value);
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return ReadValue(parcel, value);
}
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return ReadValue(parcel, value);
}
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return ReadValue(parcel, value);
}
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) {
    return ReadValue(parcel, value);
}
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    return ReadNarrow(parcel, value);
}
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) {
    return ReadNarrow(parcel, value);
}
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
    return ReadNarrow(parcel, value);
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    return parcel->WriteBinder(binder);
}
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    return parcel->ReadBinder(binder);
}
