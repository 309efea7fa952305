#include <string.h>

#include <string>

#include "parcel.h"
#include "status.h"

// An exception is its code, its message, a 0 for the part that other languages put a trace in, and
// for EX_SERVICE_SPECIFIC the number, for EX_PARCELABLE the size of nothing. No exception is its
// code alone.

namespace {

bool AllocateMessage(void* data, int32_t length, char** buffer) {
    auto* message = static_cast<std::string*>(data);
    if (length < 0) {
        message->clear();
        return true;
    }
    message->resize(static_cast<size_t>(length) - 1);
    *buffer = message->data();
    return true;
}

binder_status_t ReadZero(const AParcel* parcel) {
    int32_t value;
    const binder_status_t status = AParcel_readInt32(parcel, &value);
    return status == STATUS_OK && value != 0 ? STATUS_BAD_VALUE : status;
}

}  // namespace

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    if (status->exception == EX_TRANSACTION_FAILED) return status->error;
    binder_status_t result = AParcel_writeInt32(parcel, status->exception);
    if (result != STATUS_OK || status->exception == EX_NONE) return result;
    const auto length = static_cast<int32_t>(strlen(status->message));
    result = AParcel_writeString(parcel, status->message, length);
    if (result == STATUS_OK) result = AParcel_writeInt32(parcel, 0);
    if (result != STATUS_OK) return result;
    if (status->exception == EX_SERVICE_SPECIFIC) return AParcel_writeInt32(parcel, status->error);
    return status->exception == EX_PARCELABLE ? AParcel_writeInt32(parcel, 0) : STATUS_OK;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    int32_t exception;
    binder_status_t result = AParcel_readInt32(parcel, &exception);
    if (result != STATUS_OK) return result;
    if (exception == EX_NONE) {
        *status = AStatus_newOk();
        return STATUS_OK;
    }
    std::string message;
    result = AParcel_readString(parcel, &message, AllocateMessage);
    if (result == STATUS_OK) result = ReadZero(parcel);
    if (result == STATUS_OK && exception == EX_PARCELABLE) result = ReadZero(parcel);
    int32_t number = 0;
    if (result == STATUS_OK && exception == EX_SERVICE_SPECIFIC) {
        result = AParcel_readInt32(parcel, &number);
    }
    if (result != STATUS_OK) return result;
    *status = exception == EX_SERVICE_SPECIFIC
                      ? AStatus_fromServiceSpecificErrorWithMessage(number, message.c_str())
                      : AStatus_fromExceptionCodeWithMessage(exception, message.c_str());
    return STATUS_OK;
}
