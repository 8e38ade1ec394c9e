#pragma once

#include <string>

#include "host/velactl/Report.h"

namespace velactl {

/**
 * Writes a recording as one HTML file that shows it and needs nothing else, and prints what it
 * holds. An empty `output` is the recording's name with .html, "-" stdout.
 */
Failure writePage(const std::string& file, std::string output);

}  // namespace velactl
