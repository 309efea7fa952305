#include "status.h"

#include <stdlib.h>
#include <string.h>

#include <new>
#include <string>

namespace {

// Shared by all who need an OK status; never deleted.
constexpr AStatus kOk = {EX_NONE, 0, ""};

AStatus* NewStatus(binder_exception_t exception, int32_t error, const char* message) {
    if (message == nullptr) message = "";
    const size_t size = strlen(message) + 1;
    char* memory = static_cast<char*>(::operator new(sizeof(AStatus) + size));
    char* text = memory + sizeof(AStatus);
    memcpy(text, message, size);
    return new (memory) AStatus{exception, error, text};
}

struct Name {
    int32_t value;
    const char* name;
};

constexpr Name kExceptions[] = {
        {EX_SECURITY, "EX_SECURITY"},
        {EX_BAD_PARCELABLE, "EX_BAD_PARCELABLE"},
        {EX_ILLEGAL_ARGUMENT, "EX_ILLEGAL_ARGUMENT"},
        {EX_NULL_POINTER, "EX_NULL_POINTER"},
        {EX_ILLEGAL_STATE, "EX_ILLEGAL_STATE"},
        {EX_NETWORK_MAIN_THREAD, "EX_NETWORK_MAIN_THREAD"},
        {EX_UNSUPPORTED_OPERATION, "EX_UNSUPPORTED_OPERATION"},
        {EX_SERVICE_SPECIFIC, "EX_SERVICE_SPECIFIC"},
        {EX_PARCELABLE, "EX_PARCELABLE"},
        {EX_TRANSACTION_FAILED, "EX_TRANSACTION_FAILED"},
};

constexpr Name kStatuses[] = {
        {STATUS_UNKNOWN_ERROR, "STATUS_UNKNOWN_ERROR"},
        {STATUS_NO_MEMORY, "STATUS_NO_MEMORY"},
        {STATUS_INVALID_OPERATION, "STATUS_INVALID_OPERATION"},
        {STATUS_BAD_VALUE, "STATUS_BAD_VALUE"},
        {STATUS_BAD_TYPE, "STATUS_BAD_TYPE"},
        {STATUS_NAME_NOT_FOUND, "STATUS_NAME_NOT_FOUND"},
        {STATUS_PERMISSION_DENIED, "STATUS_PERMISSION_DENIED"},
        {STATUS_NO_INIT, "STATUS_NO_INIT"},
        {STATUS_ALREADY_EXISTS, "STATUS_ALREADY_EXISTS"},
        {STATUS_DEAD_OBJECT, "STATUS_DEAD_OBJECT"},
        {STATUS_FAILED_TRANSACTION, "STATUS_FAILED_TRANSACTION"},
        {STATUS_BAD_INDEX, "STATUS_BAD_INDEX"},
        {STATUS_NOT_ENOUGH_DATA, "STATUS_NOT_ENOUGH_DATA"},
        {STATUS_WOULD_BLOCK, "STATUS_WOULD_BLOCK"},
        {STATUS_TIMED_OUT, "STATUS_TIMED_OUT"},
        {STATUS_UNKNOWN_TRANSACTION, "STATUS_UNKNOWN_TRANSACTION"},
        {STATUS_FDS_NOT_ALLOWED, "STATUS_FDS_NOT_ALLOWED"},
        {STATUS_UNEXPECTED_NULL, "STATUS_UNEXPECTED_NULL"},
};

// Null if the value is not in the table.
template <size_t N>
const char* NameOf(const Name (&names)[N], int32_t value) {
    for (const Name& known : names) {
        if (known.value == value) return known.name;
    }
    return nullptr;
}

std::string Describe(const AStatus* status) {
    if (status->exception == EX_NONE) return "OK";
    std::string text = NameOf(kExceptions, status->exception);
    text += " (" + std::to_string(status->exception) + ")";
    if (status->exception == EX_SERVICE_SPECIFIC)
        text += ", error " + std::to_string(status->error);
    if (status->exception == EX_TRANSACTION_FAILED) {
        text += std::string(", ") + NameOf(kStatuses, status->error);
        text += " (" + std::to_string(status->error) + ")";
    }
    if (status->message[0] != '\0') text += std::string(": ") + status->message;
    return text;
}

}  // namespace

AStatus* AStatus_newOk() {
    return const_cast<AStatus*>(&kOk);
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, "");
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    if (exception == EX_NONE) return AStatus_newOk();
    if (exception == EX_TRANSACTION_FAILED || NameOf(kExceptions, exception) == nullptr) {
        return NewStatus(EX_TRANSACTION_FAILED, STATUS_FAILED_TRANSACTION, message);
    }
    return NewStatus(exception, 0, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, "");
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return NewStatus(EX_SERVICE_SPECIFIC, serviceSpecific, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    const bool known = NameOf(kStatuses, status) != nullptr;
    return NewStatus(EX_TRANSACTION_FAILED, known ? status : STATUS_UNKNOWN_ERROR, "");
}

bool AStatus_isOk(const AStatus* status) {
    return status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status->exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status->exception == EX_SERVICE_SPECIFIC ? status->error : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status->exception == EX_TRANSACTION_FAILED ? status->error : STATUS_OK;
}

const char* AStatus_getMessage(const AStatus* status) {
    return status->message;
}

const char* AStatus_getDescription(const AStatus* status) {
    const std::string text = Describe(status);
    char* copy = new char[text.size() + 1];
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void AStatus_deleteDescription(const char* description) {
    delete[] description;
}

void AStatus_delete(AStatus* status) {
    if (status != &kOk) ::operator delete(status);
}
