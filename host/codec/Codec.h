#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/codec/Fields.h"

namespace codec {

/** JSON whose objects keep the order of a record's declaration. */
using Json = nlohmann::ordered_json;

/** A parameter of an operation, or a field of a record. */
struct Parameter {
    std::string type;
    std::string name;

    /** "int a, int[] b". */
    static std::string list(const std::vector<Parameter>& parameters) {
        std::string text;
        for (const Parameter& parameter : parameters)
            text += (text.empty() ? "" : ", ") + parameter.type + " " + parameter.name;
        return text;
    }
};

struct RecordDescription {
    std::string name;
    std::vector<Parameter> fields;

    /** "Name {int a, int[] b}". */
    [[nodiscard]] std::string text() const { return name + " {" + Parameter::list(fields) + "}"; }
};

/**
 * The JSON form of one type of the interface or of the service library:
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

/** What JSON has no number for is a string: "NaN", "Infinity", "-Infinity". */
template <>
struct Codec<float> {
    static bool read(const Json& json, float* out, std::string* error) {
        using Limits = std::numeric_limits<float>;
        if (json == "NaN") {
            *out = Limits::quiet_NaN();
        } else if (json == "Infinity" || json == "-Infinity") {
            *out = json == "Infinity" ? Limits::infinity() : -Limits::infinity();
        } else if (!json.is_number()) {
            return refuse(error, "expected a number");
        } else if (const auto value = json.get<double>(); std::abs(value) > Limits::max()) {
            return refuse(error, "expected a number that a float can hold");
        } else {
            *out = static_cast<float>(value);
        }
        return true;
    }
    /** The double nearest to the float's shortest spelling: 0.1f prints as 0.1. */
    static Json write(float value) {
        if (std::isnan(value)) return "NaN";
        if (std::isinf(value)) return value > 0 ? "Infinity" : "-Infinity";
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

    static RecordDescription describe() {
        RecordDescription record{.name = type(), .fields = {}};
        const auto append = [&](const auto& field) {
            using Member = std::remove_cvref_t<decltype(std::declval<T>().*field.member)>;
            record.fields.push_back({.type = Codec<Member>::type(), .name = field.name});
        };
        std::apply([&](const auto&... fields) { (append(fields), ...); }, kFields<T>);
        return record;
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

}  // namespace codec
