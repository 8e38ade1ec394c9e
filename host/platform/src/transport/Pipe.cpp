#include "transport/Pipe.h"

#include <poll.h>
#include <sys/stat.h>

namespace binder {

std::optional<PipeNumber> pipeOf(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISFIFO(info.st_mode)) return std::nullopt;
    return PipeNumber(info.st_dev, info.st_ino);
}

bool isOtherEndGone(int fd) {
    // A reading end tells of it as POLLHUP, a writing end as POLLERR.
    pollfd event{.fd = fd, .events = 0, .revents = 0};
    return poll(&event, 1, 0) == 1 && (event.revents & (POLLHUP | POLLERR)) != 0;
}

}  // namespace binder
