#include "host/codec/Descriptor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace codec {
namespace {

const char* kindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "file";
        case S_IFIFO:
            return "pipe";
        case S_IFSOCK:
            return "socket";
        case S_IFCHR:
        case S_IFBLK:
            return "device";
        default:
            return "other";
    }
}

int standIn(const Json& json, std::string* error) {
    // Sparse, so a large one costs nothing; larger ones than a call can name are nonsense.
    int32_t size = 0;
    if (!Codec<int32_t>::read(json, &size, error)) return -1;
    const int fd = memfd_create("stand-in", MFD_CLOEXEC);
    if (size >= 0 && fd >= 0 && ftruncate(fd, size) == 0) return fd;
    *error = "cannot make a file of " + std::to_string(size) + " bytes";
    if (fd >= 0) close(fd);
    return -1;
}

}  // namespace

Json describeDescriptor(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return {{"kind", "none"}, {"size", 0}};
    return {{"kind", kindOf(info.st_mode)}, {"size", info.st_size}};
}

int openDescriptor(const Json& json, std::string* error) {
    if (json.is_object() && json.contains("size")) return standIn(json["size"], error);
    const bool named = json.is_object() && json.size() == 1 && json.contains("path");
    const Json& pathJson = named ? json["path"] : json;
    if (!pathJson.is_string()) {
        *error = R"(expected a path, {"path": ...} or {"size": ...})";
        return -1;
    }
    const std::string path = pathJson.get<std::string>();
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) *error = "cannot open " + path + ": " + std::strerror(errno);
    return fd;
}

}  // namespace codec
