#pragma once

#include <string>

#include <android/binder_auto_utils.h>

#include "host/velactl/Codec.h"

namespace velactl {

enum ExitCode : int {
    kOk = 0,
    kErrorStatus = 1,
    kUsage = 2,
    kNoService = 3,
};

/** Prints one line of JSON on stdout and flushes it. Any thread; lines do not mix. */
void printLine(const Json& json);

/** Prints "velactl: text" on stderr and returns the code. */
int fail(ExitCode code, const std::string& text);

/** As fail, and the same as a line of JSON on stdout, so that each command has its line. */
int failWithLine(ExitCode code, const std::string& kind, const std::string& text);

/**
 * Reports an error status of the operation that `what` names: {"error": {"kind", "code",
 * "description"}} on stdout, words on stderr. Returns kNoService for a dead service, else
 * kErrorStatus.
 */
int reportStatus(const std::string& what, const ndk::ScopedAStatus& status);

}  // namespace velactl
