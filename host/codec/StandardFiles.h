#pragma once

#include <fcntl.h>
#include <unistd.h>

/**
 * Opens what of stdin, stdout and stderr was closed, so that no file or connection takes its place
 * and is written to as if it were the terminal. What is written to such a stdout fails.
 */
inline void openStandardFiles() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest number that is free is fd itself.
        if (fcntl(fd, F_GETFD) < 0)
            (void)open("/dev/null", fd == STDERR_FILENO ? O_RDWR : O_RDONLY);
    }
}
