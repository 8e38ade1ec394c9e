#pragma once

#include <cstdint>
#include <string>

#include <android/binder_status.h>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    /** The interface's for EX_SERVICE_SPECIFIC, a binder_status_t for EX_TRANSACTION_FAILED. */
    int32_t error = 0;
    std::string message;
};

namespace binder {

/** What the status says; null is a failed transaction with STATUS_UNEXPECTED_NULL. */
const AStatus& valueOf(const AStatus* status);

/** STATUS_UNKNOWN_ERROR for a status that is not one of the known ones. */
binder_status_t knownStatus(binder_status_t status);

/** EX_TRANSACTION_FAILED for an exception that is not one of the known ones. */
binder_exception_t knownException(binder_exception_t exception);

}  // namespace binder
