#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/velactl/Recording.h"

namespace velactl {

/** Indices of a recording's calls, ascending. */
using Calls = std::vector<size_t>;

/** The calls without those whose object none of the calls before brings. */
Calls withoutOrphans(const Recording& recording, const Calls& calls);

/**
 * The calls and what they need of those before them: whatever brought their objects, made their
 * layers, and built and committed the stack that they present.
 */
Calls withNeeded(const Recording& recording, const Calls& calls);

/** A recording of these calls only, numbered anew, complete with its last line. */
std::string excerptOf(const Recording& recording, const Calls& calls);

}  // namespace velactl
