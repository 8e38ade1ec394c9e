#pragma once

#include <cstdarg>

#include <android/log.h>

namespace binder {

/** One line in the system log, tagged as this library's. */
[[gnu::format(printf, 2, 3)]] inline void log(android_LogPriority priority, const char* format,
                                              ...) {
    va_list arguments;
    va_start(arguments, format);
    __android_log_vprint(priority, "binder", format, arguments);
    va_end(arguments);
}

/**
 * A line about what another process has done: at most so many in a second, and none while nobody
 * reads the standard error, since whoever waited for that could be stopped by others' faults.
 */
[[gnu::format(printf, 2, 3)]] void complain(android_LogPriority priority, const char* format, ...);

}  // namespace binder
