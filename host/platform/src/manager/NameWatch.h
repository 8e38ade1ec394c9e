#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include <android-base/unique_fd.h>

#include "transport/RuntimeFolder.h"

namespace binder {

/**
 * Sees the changes of the service manager and of its names. Looks again every second also without
 * one, since what went wrong the last time may go well then.
 */
class NameWatch {
  public:
    using Clock = std::chrono::steady_clock;

    explicit NameWatch(const RuntimeFolder& folder);

    /** True when it is time to look again; false past the deadline. */
    [[nodiscard]] bool wait(const std::optional<Clock::time_point>& deadline) const;

  private:
    android::base::unique_fd mNotify;
};

/** Tries at once and again whenever a name may have changed. False when the deadline has passed. */
bool waitUntil(const std::function<bool()>& attempt,
               const std::optional<NameWatch::Clock::time_point>& deadline);

}  // namespace binder
