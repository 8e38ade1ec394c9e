#include "host/velactl/Codec.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace velactl {

bool Codec<ndk::ScopedFileDescriptor>::read(const Json& json, ndk::ScopedFileDescriptor* out,
                                            std::string* error) {
    const bool named = json.is_object() && json.size() == 1 && json.contains("path");
    const Json& pathJson = named ? json["path"] : json;
    if (!pathJson.is_string()) return refuse(error, "expected a path or {\"path\": ...}");
    const std::string path = pathJson.get<std::string>();
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return refuse(error, "cannot open " + path + ": " + std::strerror(errno));
    out->set(fd);
    return true;
}

}  // namespace velactl
