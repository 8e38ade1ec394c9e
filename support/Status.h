#pragma once

#include <cstdint>

#include <android/binder_auto_utils.h>
#include <android/binder_status.h>

namespace lmfg::support {

/** Service-specific codes of our own; any other negative code is the service library's. */
inline constexpr int32_t kLibraryAbsent = -1;
inline constexpr int32_t kComposerOnly = -2;
inline constexpr int32_t kNoClientMade = -1;

/** The status or result of whoever was to give one, library or client, until it does. */
inline constexpr int32_t kUnanswered = -1;

[[nodiscard]] inline ndk::ScopedAStatus ok() {
    return ndk::ScopedAStatus::ok();
}

/** The platform's unknown error: its exception is EX_TRANSACTION_FAILED, not service-specific. */
[[nodiscard]] inline ndk::ScopedAStatus unknownError() {
    return ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_ERROR);
}

/** A service-specific error. */
[[nodiscard]] inline ndk::ScopedAStatus serviceError(int32_t code) {
    return ndk::ScopedAStatus::fromServiceSpecificError(code);
}

/** Whether a status or result code of the library means that it refused. */
[[nodiscard]] constexpr bool isRefusal(int32_t status) {
    return status < 0;
}

/** Ok for a status of the library that is zero or positive, else that status as the error. */
[[nodiscard]] inline ndk::ScopedAStatus fromLibrary(int32_t status) {
    return isRefusal(status) ? serviceError(status) : ok();
}

}  // namespace lmfg::support
