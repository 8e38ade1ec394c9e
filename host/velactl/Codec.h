#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_enums.h>
#include <android/binder_interface_utils.h>
#include <nlohmann/json.hpp>

#include "host/velactl/Records.h"

namespace velactl {

/** JSON whose objects keep the order of a record's declaration. */
using Json = nlohmann::ordered_json;

/**
 * The JSON form of one interface type:
 *   read(json, out, error)   true, or false with a reason in *error; *out is then unspecified
 *   write(value)             the value as JSON
 *   type()                   the type's name as the interface definition spells it
 * A type without a codec is a compile error where an operation names it.
 */
template <typename T>
struct Codec;

inline bool refuse(std::string* error, std::string reason) {
    *error = std::move(reason);
    return false;
}

/** "a.b.C" to "C". */
inline std::string shortName(std::string_view descriptor) {
    return std::string(descriptor.substr(descriptor.rfind('.') + 1));
}

template <>
struct Codec<bool> {
    static bool read(const Json& json, bool* out, std::string* error) {
        if (!json.is_boolean()) return refuse(error, "expected true or false");
        *out = json.get<bool>();
        return true;
    }
    static Json write(bool value) { return value; }
    static std::string type() { return "boolean"; }
};

template <std::integral T>
struct Codec<T> {
    static bool read(const Json& json, T* out, std::string* error) {
        if (json.is_number_unsigned()) {
            if (const auto value = json.get<uint64_t>(); std::in_range<T>(value)) {
                *out = static_cast<T>(value);
                return true;
            }
        } else if (json.is_number_integer()) {
            if (const auto value = json.get<int64_t>(); std::in_range<T>(value)) {
                *out = static_cast<T>(value);
                return true;
            }
        }
        using Limits = std::numeric_limits<T>;
        return refuse(error, "expected an integer from " + std::to_string(Limits::min()) + " to " +
                                     std::to_string(Limits::max()));
    }
    static Json write(T value) { return value; }
    static std::string type() { return sizeof(T) == 1 ? "byte" : sizeof(T) == 4 ? "int" : "long"; }
};

template <>
struct Codec<float> {
    static bool read(const Json& json, float* out, std::string* error) {
        if (!json.is_number()) return refuse(error, "expected a number");
        const auto value = json.get<double>();
        if (std::abs(value) > static_cast<double>(std::numeric_limits<float>::max())) {
            return refuse(error, "expected a number that a float can hold");
        }
        *out = static_cast<float>(value);
        return true;
    }
    /** The double nearest to the float's shortest spelling: 0.1f prints as 0.1. */
    static Json write(float value) {
        std::array<char, 32> text{};
        std::to_chars(text.data(), text.data() + text.size() - 1, value);
        return std::strtod(text.data(), nullptr);
    }
    static std::string type() { return "float"; }
};

template <>
struct Codec<std::string> {
    static bool read(const Json& json, std::string* out, std::string* error) {
        if (!json.is_string()) return refuse(error, "expected a string");
        *out = json.get<std::string>();
        return true;
    }
    static Json write(const std::string& value) { return value; }
    static std::string type() { return "String"; }
};

/** An enumerator's name or any integer of the backing type. */
template <typename T>
requires std::is_enum_v<T>
struct Codec<T> {
    using Backing = std::underlying_type_t<T>;

    static bool read(const Json& json, T* out, std::string* error) {
        if (!json.is_string()) {
            Backing value{};
            if (!Codec<Backing>::read(json, &value, error)) return false;
            *out = static_cast<T>(value);
            return true;
        }
        for (const T value : ndk::enum_range<T>()) {
            if (toString(value) == json.get<std::string>()) {
                *out = value;
                return true;
            }
        }
        return refuse(error, "no such enumerator");
    }
    static Json write(T value) { return static_cast<Backing>(value); }
    static std::string type() { return "VendorConfig"; }
};

template <typename T>
struct Codec<std::vector<T>> {
    static bool read(const Json& json, std::vector<T>* out, std::string* error) {
        if (!json.is_array()) return refuse(error, "expected an array");
        out->resize(json.size());
        for (size_t i = 0; i < json.size(); ++i) {
            if (!Codec<T>::read(json[i], &(*out)[i], error)) {
                return refuse(error, "element " + std::to_string(i) + ": " + *error);
            }
        }
        return true;
    }
    static Json write(const std::vector<T>& values) {
        Json json = Json::array();
        for (const T& value : values)
            json.push_back(Codec<T>::write(value));
        return json;
    }
    static std::string type() { return Codec<T>::type() + "[]"; }
};

/** A file to open: "path" or {"path": ...}; for reading and writing where that is allowed. */
template <>
struct Codec<ndk::ScopedFileDescriptor> {
    static bool read(const Json& json, ndk::ScopedFileDescriptor* out, std::string* error);
    static std::string type() { return "ParcelFileDescriptor"; }
};

/** Clients' callbacks cannot be written down; null, which unregisters, can. */
template <std::derived_from<ndk::ICInterface> T>
struct Codec<std::shared_ptr<T>> {
    static bool read(const Json& json, std::shared_ptr<T>* out, std::string* error) {
        if (!json.is_null()) return refuse(error, "expected null (use monitor to register)");
        out->reset();
        return true;
    }
    static Json write(const std::shared_ptr<T>& value) {
        return value == nullptr ? Json() : Json{{"interface", T::descriptor}};
    }
    static std::string type() { return shortName(T::descriptor); }
};

/** An object with the record's fields; missing ones keep their defaults. */
template <Record T>
struct Codec<T> {
    static bool read(const Json& json, T* out, std::string* error) {
        if (!json.is_object()) return refuse(error, "expected an object");
        for (const auto& item : json.items()) {
            if (!readField(item.key(), item.value(), out, error)) {
                return refuse(error, item.key() + ": " + *error);
            }
        }
        return true;
    }
    static Json write(const T& record) {
        Json json = Json::object();
        const auto writeField = [&](const auto& field) {
            const auto& member = record.*field.member;
            json[field.name] = Codec<std::remove_cvref_t<decltype(member)>>::write(member);
        };
        std::apply([&](const auto&... fields) { (writeField(fields), ...); }, kFields<T>);
        return json;
    }
    static std::string type() { return shortName(T::descriptor); }

    /** "Name {int a, int[] b}". */
    static std::string describe() {
        std::string text;
        const auto append = [&](const auto& field) {
            using Member = std::remove_cvref_t<decltype(std::declval<T>().*field.member)>;
            text += (text.empty() ? "" : ", ") + Codec<Member>::type() + " " + field.name;
        };
        std::apply([&](const auto&... fields) { (append(fields), ...); }, kFields<T>);
        return type() + " {" + text + "}";
    }

  private:
    static bool readField(const std::string& name, const Json& json, T* out, std::string* error) {
        bool known = false;
        bool ok = false;
        const auto readIfNamed = [&](const auto& field) {
            if (name != field.name) return;
            known = true;
            auto& member = out->*field.member;
            ok = Codec<std::remove_reference_t<decltype(member)>>::read(json, &member, error);
        };
        std::apply([&](const auto&... fields) { (readIfNamed(fields), ...); }, kFields<T>);
        return known ? ok : refuse(error, type() + " has no such field");
    }
};

}  // namespace velactl
