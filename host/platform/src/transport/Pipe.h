#pragma once

#include <optional>
#include <utility>

#include <sys/types.h>

namespace binder {

/** The kernel's own number of a pipe, which nobody can forge. */
using PipeNumber = std::pair<dev_t, ino_t>;

/** Of the pipe that the descriptor is an end of; nothing for what is none. */
std::optional<PipeNumber> pipeOf(int fd);

/** True when nobody has the other end of the pipe any more. */
bool isOtherEndGone(int fd);

}  // namespace binder
