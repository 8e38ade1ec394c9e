#pragma once

#include <concepts>
#include <memory>
#include <ranges>
#include <sstream>
#include <string>
#include <type_traits>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

namespace android::internal {

/**
 * A text for people of any value that an AIDL record can hold. Enumerators and records print
 * themselves; what is absent prints as (null).
 */
template <typename T>
std::string ToString(const T& value) {
    if constexpr (std::same_as<T, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::same_as<T, char16_t>) {
        return std::to_string(static_cast<unsigned>(value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else if constexpr (std::convertible_to<const T&, std::string>) {
        return value;
    } else if constexpr (std::same_as<T, ndk::ScopedFileDescriptor>) {
        return "fd:" + std::to_string(value.get());
    } else if constexpr (std::same_as<T, ndk::SpAIBinder>) {
        if (value.get() == nullptr) return "(null)";
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
        // Generated enums bring a toString() along; others have only their number.
        if constexpr (requires { toString(value); }) {
            return toString(value);
        } else {
            return std::to_string(static_cast<std::underlying_type_t<T>>(value));
        }
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
