#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <ranges>
#include <sstream>
#include <string>
#include <type_traits>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcelable_utils.h>

namespace android::internal {

/** Half of a surrogate pair is no character and has no text. */
inline std::string utf8(uint32_t unit) {
    const auto tail = [](uint32_t bits) { return static_cast<char>(0x80 | (bits & 0x3f)); };
    if (unit < 0x80) return {static_cast<char>(unit)};
    if (unit < 0x800) return {static_cast<char>(0xc0 | unit >> 6), tail(unit)};
    if ((unit & 0xf800) == 0xd800) return "";
    return {static_cast<char>(0xe0 | unit >> 12), tail(unit >> 6), tail(unit)};
}

/**
 * A text for people of any value that an AIDL record can hold. Enumerators and records print
 * themselves, characters as UTF-8, holders as nothing; what is absent prints as (null).
 */
template <typename T>
std::string ToString(const T& value) {
    if constexpr (std::same_as<T, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::same_as<T, char16_t>) {
        return utf8(value);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else if constexpr (std::convertible_to<const T&, std::string>) {
        return value;
    } else if constexpr (std::same_as<T, ndk::ScopedFileDescriptor>) {
        return "fd:" + std::to_string(value.get());
    } else if constexpr (std::same_as<T, ndk::SpAIBinder>) {
        std::ostringstream stream;
        stream << "binder:" << static_cast<const void*>(value.get());
        return stream.str();
    } else if constexpr (requires { typename T::element_type; }) {
        if (value == nullptr) return "(null)";
        if constexpr (std::derived_from<typename T::element_type, ndk::ICInterface>) {
            return "interface:" + ToString(value->asBinder());
        } else {
            return ToString(*value);
        }
    } else if constexpr (requires {
                             value.has_value();
                             *value;
                         }) {
        return value.has_value() ? ToString(*value) : "(null)";
    } else if constexpr (requires {
                             { value.toString() } -> std::convertible_to<std::string>;
                         }) {
        return value.toString();
    } else if constexpr (std::is_enum_v<T>) {
        return toString(value);  // generated beside the enum
    } else if constexpr (std::same_as<T, ndk::AParcelableHolder>) {
        return "";
    } else {
        static_assert(std::ranges::range<const T>, "no text is known for this type");
        std::string text = "[";
        for (auto it = value.begin(); it != value.end(); ++it) {
            if (it != value.begin()) text += ", ";
            text += ToString<typename T::value_type>(*it);
        }
        return text + "]";
    }
}

}  // namespace android::internal
