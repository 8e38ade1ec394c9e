#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "host/velactl/Report.h"

namespace velactl {

struct Recording;

/** How long an event that was recorded may take to come. */
inline constexpr std::chrono::milliseconds kEventPatience{5000};

/**
 * Makes the requests of a recording again, one after the other in the order in which they began and
 * through as many composer clients, lets callbacks answer as they did, and compares every answer
 * and every event. Prints the first difference and a summary. The calls of the recording have the
 * new answers then; *equal tells whether all was as recorded.
 */
Failure replay(const std::shared_ptr<Recording>& recording, std::chrono::milliseconds patience,
               bool* equal);

/**
 * Replays a file. With `update` the new answers are written into it, and differences are no
 * failure.
 */
Failure replay(const std::string& file, bool update, bool* equal);

}  // namespace velactl
