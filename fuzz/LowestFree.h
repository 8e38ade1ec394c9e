#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace fuzz {

/** The lowest number that a descriptor could have: it moves when one stays open. */
inline int lowestFree() {
    const int fd = fcntl(STDIN_FILENO, F_DUPFD, 0);
    close(fd);
    return fd;
}

}  // namespace fuzz
