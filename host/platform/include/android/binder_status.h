#pragma once

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

// Generated code asks for the platform's level; this run time offers the interface of release 14.
#ifndef __ANDROID_API__
#define __ANDROID_API__ 34
#endif

/** The outcome of a method: ok, an exception with a message, or a failed transaction. */
struct AStatus;
typedef struct AStatus AStatus;

#pragma GCC visibility push(default)
__BEGIN_DECLS

/**
 * Results of the C interface. Each value is STATUS_OK or one of the errors; others never escape.
 */
enum {
    STATUS_OK = 0,

    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_NO_MEMORY = -ENOMEM,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    STATUS_BAD_TYPE = STATUS_UNKNOWN_ERROR + 1,
    STATUS_NAME_NOT_FOUND = -ENOENT,
    STATUS_PERMISSION_DENIED = -EPERM,
    STATUS_NO_INIT = -ENODEV,
    STATUS_ALREADY_EXISTS = -EEXIST,
    STATUS_DEAD_OBJECT = -EPIPE,
    STATUS_FAILED_TRANSACTION = STATUS_UNKNOWN_ERROR + 2,
    STATUS_BAD_INDEX = -EOVERFLOW,
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
    STATUS_WOULD_BLOCK = -EWOULDBLOCK,
    STATUS_TIMED_OUT = -ETIMEDOUT,
    STATUS_UNKNOWN_TRANSACTION = -EBADMSG,
    STATUS_FDS_NOT_ALLOWED = STATUS_UNKNOWN_ERROR + 7,
    STATUS_UNEXPECTED_NULL = STATUS_UNKNOWN_ERROR + 8,
};
typedef int32_t binder_status_t;

/** What went wrong in a method, as the caller of an AIDL interface sees it. */
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    /** The interface defines the meaning; the status carries an error number of its own. */
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    /** The call itself failed; the status carries a binder_status_t. */
    EX_TRANSACTION_FAILED = -129,
};
typedef int32_t binder_exception_t;

/** Each of these makes a status that the caller frees with AStatus_delete. Texts are copied. */
__attribute__((warn_unused_result)) AStatus* AStatus_newOk(void);
/** An exception that is not listed becomes EX_TRANSACTION_FAILED with STATUS_FAILED_TRANSACTION. */
__attribute__((warn_unused_result)) AStatus* AStatus_fromExceptionCode(
        binder_exception_t exception);
__attribute__((warn_unused_result)) AStatus* AStatus_fromExceptionCodeWithMessage(
        binder_exception_t exception, const char* message);
__attribute__((warn_unused_result)) AStatus* AStatus_fromServiceSpecificError(
        int32_t serviceSpecific);
__attribute__((warn_unused_result)) AStatus* AStatus_fromServiceSpecificErrorWithMessage(
        int32_t serviceSpecific, const char* message);
/**
 * Ok for STATUS_OK, else EX_TRANSACTION_FAILED; a status not listed becomes STATUS_UNKNOWN_ERROR.
 */
__attribute__((warn_unused_result)) AStatus* AStatus_fromStatus(binder_status_t status);

/**
 * Null, the status that nobody has set, answers as a failed transaction with
 * STATUS_UNEXPECTED_NULL.
 */
bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
/** The error of an EX_SERVICE_SPECIFIC status; 0 for any other. */
int32_t AStatus_getServiceSpecificError(const AStatus* status);
/** The status of an EX_TRANSACTION_FAILED status; STATUS_OK for any other. */
binder_status_t AStatus_getStatus(const AStatus* status);
/** Never null; lives as long as the status. */
const char* AStatus_getMessage(const AStatus* status);
/** A text for people, freed with AStatus_deleteDescription. */
__attribute__((warn_unused_result)) const char* AStatus_getDescription(const AStatus* status);
void AStatus_deleteDescription(const char* description);
/** Null is allowed. */
void AStatus_delete(AStatus* status);

__END_DECLS
#pragma GCC visibility pop
