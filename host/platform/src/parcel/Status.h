#pragma once

#include <cstdint>
#include <string>

#include <android/binder_status.h>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    /** EX_SERVICE_SPECIFIC: the interface's error. EX_TRANSACTION_FAILED: a binder_status_t. Else
     * 0. */
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
