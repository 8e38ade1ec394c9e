#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include <hidl/HidlSupport.h>

namespace lmfg::support {

/** An owning copy; an empty vector gives one without a buffer. */
template <typename T>
[[nodiscard]] android::hardware::hidl_vec<T> toHidl(const std::vector<T>& values) {
    static_assert(std::is_arithmetic_v<T>);
    // Not by resize(), which would zero the elements first, and allocate even for none.
    if (values.empty()) return {};
    return android::hardware::hidl_vec<T>(values.begin(), values.end());
}

/** An owning copy, embedded zero bytes included. */
[[nodiscard]] inline android::hardware::hidl_string toHidl(const std::string& text) {
    return android::hardware::hidl_string(text.data(), text.size());
}

/** Replace what `out` holds by a copy of what the library delivered. */
template <typename T>
void copyOut(const android::hardware::hidl_vec<T>& values, std::vector<T>* out) {
    out->assign(values.data(), values.data() + values.size());
}

inline void copyOut(const android::hardware::hidl_string& text, std::string* out) {
    out->assign(text.c_str(), text.size());
}

template <typename Record>
void copyOut(const Record& record, Record* out) {
    *out = record;
}

}  // namespace lmfg::support
