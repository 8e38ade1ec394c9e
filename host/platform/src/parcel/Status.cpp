#include "parcel/Status.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

using binder::valueOf;

struct Named {
    int32_t value;
    const char* name;
};

constexpr Named kStatuses[] = {
        {STATUS_OK, "OK"},
        {STATUS_UNKNOWN_ERROR, "UNKNOWN_ERROR"},
        {STATUS_NO_MEMORY, "NO_MEMORY"},
        {STATUS_INVALID_OPERATION, "INVALID_OPERATION"},
        {STATUS_BAD_VALUE, "BAD_VALUE"},
        {STATUS_BAD_TYPE, "BAD_TYPE"},
        {STATUS_NAME_NOT_FOUND, "NAME_NOT_FOUND"},
        {STATUS_PERMISSION_DENIED, "PERMISSION_DENIED"},
        {STATUS_NO_INIT, "NO_INIT"},
        {STATUS_ALREADY_EXISTS, "ALREADY_EXISTS"},
        {STATUS_DEAD_OBJECT, "DEAD_OBJECT"},
        {STATUS_FAILED_TRANSACTION, "FAILED_TRANSACTION"},
        {STATUS_BAD_INDEX, "BAD_INDEX"},
        {STATUS_NOT_ENOUGH_DATA, "NOT_ENOUGH_DATA"},
        {STATUS_WOULD_BLOCK, "WOULD_BLOCK"},
        {STATUS_TIMED_OUT, "TIMED_OUT"},
        {STATUS_UNKNOWN_TRANSACTION, "UNKNOWN_TRANSACTION"},
        {STATUS_FDS_NOT_ALLOWED, "FDS_NOT_ALLOWED"},
        {STATUS_UNEXPECTED_NULL, "UNEXPECTED_NULL"},
};

constexpr Named kExceptions[] = {
        {EX_NONE, "EX_NONE"},
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

/** Null for a value that is not listed. */
template <size_t N>
const char* nameOf(const Named (&list)[N], int32_t value) {
    const auto* const found =
            std::find_if(std::begin(list), std::end(list),
                         [value](const Named& named) { return named.value == value; });
    return found == std::end(list) ? nullptr : found->name;
}

AStatus* fromException(binder_exception_t exception, const char* message) {
    const binder_exception_t known = binder::knownException(exception);
    return new AStatus{known, known == EX_TRANSACTION_FAILED ? STATUS_FAILED_TRANSACTION : 0,
                       message};
}

/** The ok status, of which there is one, so that the common outcome allocates nothing. */
AStatus* theOk() {
    static AStatus* const status = new AStatus;  // outlives every thread
    return status;
}

}  // namespace

namespace binder {

const AStatus& valueOf(const AStatus* status) {
    static const AStatus& none =
            *new AStatus{EX_TRANSACTION_FAILED, STATUS_UNEXPECTED_NULL, ""};  // as theOk()
    return status == nullptr ? none : *status;
}

binder_status_t knownStatus(binder_status_t status) {
    return nameOf(kStatuses, status) != nullptr ? status : STATUS_UNKNOWN_ERROR;
}

binder_exception_t knownException(binder_exception_t exception) {
    return nameOf(kExceptions, exception) != nullptr ? exception : EX_TRANSACTION_FAILED;
}

}  // namespace binder

AStatus* AStatus_newOk() {
    return theOk();
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return exception == EX_NONE ? theOk() : fromException(exception, "");
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return fromException(exception, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return new AStatus{EX_SERVICE_SPECIFIC, serviceSpecific, ""};
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return new AStatus{EX_SERVICE_SPECIFIC, serviceSpecific, message};
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return theOk();
    return new AStatus{EX_TRANSACTION_FAILED, binder::knownStatus(status), ""};
}

bool AStatus_isOk(const AStatus* status) {
    return valueOf(status).exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return valueOf(status).exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    const AStatus& value = valueOf(status);
    return value.exception == EX_SERVICE_SPECIFIC ? value.error : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    const AStatus& value = valueOf(status);
    return value.exception == EX_TRANSACTION_FAILED ? value.error : STATUS_OK;
}

const char* AStatus_getMessage(const AStatus* status) {
    return valueOf(status).message.c_str();
}

const char* AStatus_getDescription(const AStatus* status) {
    const auto& [exception, error, message] = valueOf(status);
    std::string text = "No error";
    if (exception != EX_NONE) {
        text = "Status(" + std::to_string(exception) + ", " + nameOf(kExceptions, exception) +
               "): '";
        if (exception == EX_SERVICE_SPECIFIC) {
            text += std::to_string(error) + ": ";
        } else if (exception == EX_TRANSACTION_FAILED) {
            text += std::string(nameOf(kStatuses, error)) + ": ";
        }
        text += message + "'";
    }
    auto* const description = new char[text.size() + 1];
    memcpy(description, text.c_str(), text.size() + 1);
    return description;
}

void AStatus_deleteDescription(const char* description) {
    delete[] description;
}

void AStatus_delete(AStatus* status) {
    if (status != theOk()) delete status;
}
