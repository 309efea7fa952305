// Results of binder calls: plain status codes of this layer, and AStatus for what an interface
// method answers.
//
// Threads: an AStatus never changes once made, so any thread may read it; the deletion must be the
// last use. Nothing here blocks, takes a lock or calls back.

#pragma once

#include <errno.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// What went wrong in this layer itself. Zero is success, everything else is negative.
enum {
    STATUS_OK = 0,

    STATUS_UNKNOWN_ERROR = INT32_MIN,
    STATUS_BAD_TYPE = STATUS_UNKNOWN_ERROR + 1,
    STATUS_FAILED_TRANSACTION = STATUS_UNKNOWN_ERROR + 2,
    STATUS_FDS_NOT_ALLOWED = STATUS_UNKNOWN_ERROR + 7,
    STATUS_UNEXPECTED_NULL = STATUS_UNKNOWN_ERROR + 8,

    STATUS_NO_MEMORY = -ENOMEM,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    STATUS_NAME_NOT_FOUND = -ENOENT,
    STATUS_PERMISSION_DENIED = -EPERM,
    STATUS_NO_INIT = -ENODEV,
    STATUS_ALREADY_EXISTS = -EEXIST,
    STATUS_DEAD_OBJECT = -EPIPE,
    STATUS_BAD_INDEX = -EOVERFLOW,
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
    STATUS_WOULD_BLOCK = -EWOULDBLOCK,
    STATUS_TIMED_OUT = -ETIMEDOUT,
    STATUS_UNKNOWN_TRANSACTION = -EBADMSG,
};
typedef int32_t binder_status_t;

// What the callee of an interface method reports. EX_TRANSACTION_FAILED is never sent: it stands
// for a call that this layer could not carry out, whose binder_status_t tells why.
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    EX_TRANSACTION_FAILED = -129,
};
typedef int32_t binder_exception_t;

struct AStatus;
typedef struct AStatus AStatus;

// Every function that makes an AStatus gives it to the caller, who ends it with AStatus_delete.
// Messages are copied. An OK status is one shared object: making and deleting it costs no memory.

AStatus* AStatus_newOk() __attribute__((warn_unused_result));

// EX_NONE gives an OK status; a code that is not listed above becomes EX_TRANSACTION_FAILED with
// STATUS_FAILED_TRANSACTION.
AStatus* AStatus_fromExceptionCode(binder_exception_t exception)
        __attribute__((warn_unused_result));
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message)
        __attribute__((warn_unused_result));

// EX_SERVICE_SPECIFIC with a number whose meaning the interface defines.
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific)
        __attribute__((warn_unused_result));
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message)
        __attribute__((warn_unused_result));

// STATUS_OK gives an OK status, all else EX_TRANSACTION_FAILED with that status; a value that is
// not listed above counts as STATUS_UNKNOWN_ERROR.
AStatus* AStatus_fromStatus(binder_status_t status) __attribute__((warn_unused_result));

// The readers below need a status: null is not accepted.
bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
// 0 unless the exception is EX_SERVICE_SPECIFIC.
int32_t AStatus_getServiceSpecificError(const AStatus* status);
// STATUS_OK unless the exception is EX_TRANSACTION_FAILED.
binder_status_t AStatus_getStatus(const AStatus* status);
// Never null, "" if there is no message. Belongs to the status and ends with it.
const char* AStatus_getMessage(const AStatus* status);

// One line for people to read. The caller ends it with AStatus_deleteDescription.
const char* AStatus_getDescription(const AStatus* status) __attribute__((warn_unused_result));
void AStatus_deleteDescription(const char* description);

// Null is accepted.
void AStatus_delete(AStatus* status);

__END_DECLS
