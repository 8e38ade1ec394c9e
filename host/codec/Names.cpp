#include "host/codec/Names.h"

#include <cstring>

namespace codec {
namespace {

constexpr int kLastError = 133;

}  // namespace

std::string errorName(int64_t error) {
#ifdef __GLIBC__
    const char* const name =
            error > 0 && error <= kLastError ? strerrorname_np(static_cast<int>(error)) : nullptr;
#else
    const char* const name = nullptr;
#endif
    return name != nullptr ? name : std::to_string(error);
}

int errorNumber(const std::string& name) {
    for (int error = 1; error <= kLastError; ++error) {
        if (errorName(error) == name && name.starts_with('E')) return error;
    }
    return 0;
}

}  // namespace codec
