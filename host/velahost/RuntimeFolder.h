#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

/**
 * Why the folder that BINDER_RUNTIME_DIR names cannot be used, and what helps; empty when it can.
 */
inline std::string runtimeFolderProblem() {
    const char* const path = std::getenv("BINDER_RUNTIME_DIR");
    if (path == nullptr || *path == '\0') return {};
    const std::string name = "BINDER_RUNTIME_DIR " + std::string(path);
    struct stat info {};
    if (lstat(path, &info) != 0) {
        // The last folder of the path is made where it is not there.
        const bool canBeMade = errno == ENOENT && mkdir(path, 0700) == 0;
        return canBeMade ? "" : name + " cannot be made: " + std::strerror(errno);
    }
    if (!S_ISDIR(info.st_mode)) return name + " is no folder";
    if (info.st_uid != geteuid()) return name + " belongs to another user; name one of your own";
    if ((info.st_mode & 077) != 0) {
        return name + " is open to other users; chmod 700 " + std::string(path);
    }
    return {};
}
