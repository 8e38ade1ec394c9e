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

}  // namespace binder
