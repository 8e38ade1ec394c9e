#pragma once

#include <string>

#include "host/velactl/Report.h"

namespace velactl {

/**
 * Makes the requests of a recording again, one after the other in the order in which they began and
 * through as many composer clients, lets callbacks answer as they did, and compares every answer
 * and every event. Prints the first difference and a summary. With `update` the new answers are
 * written into the recording, and differences are no failure. *equal tells whether all was as
 * recorded.
 */
Failure replay(const std::string& file, bool update, bool* equal);

}  // namespace velactl
