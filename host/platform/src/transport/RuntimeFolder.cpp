#include "transport/RuntimeFolder.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Log.h"
#include "transport/Wire.h"

namespace binder {
namespace {

std::string choosePath() {
    if (const char* const path = getenv("BINDER_RUNTIME_DIR"); path != nullptr && *path != '\0') {
        return path;
    }
    if (const char* const path = getenv("XDG_RUNTIME_DIR"); path != nullptr && *path != '\0') {
        return std::string(path) + "/binder";
    }
    return "/tmp/binder-" + std::to_string(geteuid());
}

}  // namespace

RuntimeFolder::RuntimeFolder(std::string path, android::base::unique_fd fd)
    : mPath(std::move(path)), mFd(std::move(fd)) {}

const RuntimeFolder* RuntimeFolder::get() {
    static std::mutex lock;
    static const RuntimeFolder* instance = nullptr;  // outlives every thread
    static int refusal = 0;                          // the reason, told once
    const std::lock_guard guard(lock);
    if (instance == nullptr && refusal == 0) {
        instance = open();
        if (instance == nullptr && errno != EMFILE && errno != ENFILE) refusal = errno;
    }
    if (instance == nullptr && refusal != 0) errno = refusal;
    return instance;
}

const RuntimeFolder* RuntimeFolder::open() {
    std::string path = choosePath();
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        const int error = errno;
        log(ANDROID_LOG_ERROR, "Cannot create the runtime folder %s: %s", path.c_str(),
            strerror(error));
        errno = error;
        return nullptr;
    }
    android::base::unique_fd fd(
            ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (fd < 0 || fstat(fd, &info) != 0) {
        const int error = errno;
        log(ANDROID_LOG_ERROR, "Cannot open the runtime folder %s: %s", path.c_str(),
            strerror(error));
        errno = error;
        return nullptr;
    }
    if (info.st_uid != geteuid() || (info.st_mode & 077) != 0) {
        log(ANDROID_LOG_ERROR,
            "Refusing the runtime folder %s: it must belong to user %u alone (owner %u, mode %03o)",
            path.c_str(), geteuid(), info.st_uid, info.st_mode & 0777);
        errno = EACCES;
        return nullptr;
    }
    return new RuntimeFolder(std::move(path), std::move(fd));
}

std::string RuntimeFolder::shortPath(const std::string& entry) const {
    return "/proc/self/fd/" + std::to_string(mFd.get()) + "/" + entry;
}

void RuntimeFolder::sweep() const {
    const int copy = openat(mFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(copy < 0 ? nullptr : fdopendir(copy),
                                                      closedir);
    if (entries == nullptr) return;
    while (const dirent* const entry = readdir(entries.get())) {
        if (!isEndpointName(entry->d_name)) continue;
        const pid_t pid = pidOfEndpoint(entry->d_name);
        const bool isGone = pid == getpid() || (kill(pid, 0) != 0 && errno == ESRCH);
        if (isGone) unlinkat(mFd, entry->d_name, 0);
    }
}

}  // namespace binder
