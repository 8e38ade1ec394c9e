#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/velactl/Report.h"

namespace velactl {

/**
 * Writes the shortest part of a recording for which a command still fails: ends with the code with
 * which it ends for the whole recording. It is run again and again, with the name of the recording
 * to try in the place of each {} of its words, or as its last word. An empty `output` is the
 * recording's name with .reduced.
 */
Failure reduce(const std::string& file, std::string output, std::vector<std::string> command);

/**
 * Writes the calls from one number to another with what they need of those before them. An empty
 * `output` is the recording's name with .trimmed, "-" stdout.
 */
Failure trim(const std::string& file, std::string output, int64_t from, int64_t to);

}  // namespace velactl
