#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/chip/LibraryCodec.h"
#include "host/codec/InterfaceCodec.h"
#include "records/V1_2/types.h"

namespace codec {

namespace V1_2 = ::vendor::lumenforge::hardware::display::V1_2;

template <>
inline constexpr auto kFields<V1_1::HwcRect> = rectFields<V1_1::HwcRect>();
template <>
inline constexpr auto kFields<V1_2::DisplayConfigVariableInfo_1_2> = [] {
    using R = V1_2::DisplayConfigVariableInfo_1_2;
    return std::tuple{Field{"base", &R::base}, Field{"value5", &R::value5},
                      Field{"list2", &R::list2}};
}();
template <>
inline constexpr auto kFields<V1_2::BufferInfo_1_2> = [] {
    using R = V1_2::BufferInfo_1_2;
    return std::tuple{Field{"base", &R::base}, Field{"value7", &R::value7},
                      Field{"value8", &R::value8}, Field{"list2", &R::list2}};
}();
template <>
inline constexpr auto kFields<V1_2::VelaFixedConfig_1_2> = [] {
    using R = V1_2::VelaFixedConfig_1_2;
    return std::tuple{Field{"base", &R::base},       Field{"value16", &R::value16},
                      Field{"value17", &R::value17}, Field{"value18", &R::value18},
                      Field{"value19", &R::value19}, Field{"value20", &R::value20},
                      Field{"value21", &R::value21}, Field{"value22", &R::value22},
                      Field{"value23", &R::value23}, Field{"value24", &R::value24},
                      Field{"list3", &R::list3}};
}();

}  // namespace codec

// The fields of the interface's and the library's records by name, so that tests can fill, change
// and compare records of either family. A path such as "layers[1].layerBuffer.value2" is the same
// datum on both sides. Native handles are not among the fields.
namespace fields {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;
namespace V1_2 = ::vendor::lumenforge::hardware::display::V1_2;

// Calls v(name, field) for every field of the record, in order.
template <typename R, typename V>
void visit(R& record, V v) {
    std::apply([&](const auto&... field) { (v(field.name, record.*field.member), ...); },
               codec::kFields<std::remove_const_t<R>>);
}

// Calls leaf(path, field) for every number, flag and list of numbers of the record, in order.
template <typename R, typename Leaf>
void forEachLeaf(R& record, Leaf leaf, const std::string& prefix = "") {
    visit(record, [&](const char* name, auto& field) {
        using Field = std::remove_cvref_t<decltype(field)>;
        const std::string path = prefix + name;
        if constexpr (std::is_arithmetic_v<Field>) {
            leaf(path, field);
        } else if constexpr (requires { field.size(); }) {
            using Element = std::remove_cvref_t<decltype(field[0])>;
            if constexpr (std::is_arithmetic_v<Element>) {
                leaf(path, field);
            } else {
                for (size_t i = 0; i < field.size(); ++i) {
                    forEachLeaf(field[i], leaf, path + "[" + std::to_string(i) + "].");
                }
            }
        } else {
            forEachLeaf(field, leaf, path + ".");
        }
    });
}

// A field's content in a form that both families share: floats by their bits, flags unsigned.
struct Datum {
    std::vector<int64_t> elements;
    bool isList = false;
    size_t bits = 64;  // width of an element in the record

    bool operator==(const Datum& other) const { return elements == other.elements; }
    friend void PrintTo(const Datum& datum, std::ostream* out) {
        for (const int64_t element : datum.elements)
            *out << element << ' ';
    }
};
using Flat = std::map<std::string, Datum>;

template <typename T>
int64_t canonical(T value) {
    if constexpr (std::same_as<T, float>) {
        return std::bit_cast<int32_t>(value);
    } else if constexpr (sizeof(T) == 1) {
        return static_cast<uint8_t>(value);
    } else {
        return static_cast<int64_t>(value);
    }
}

template <typename R>
Flat flatten(const R& record) {
    Flat flat;
    forEachLeaf(record, [&flat](const std::string& path, const auto& field) {
        if constexpr (std::is_arithmetic_v<std::remove_cvref_t<decltype(field)>>) {
            flat[path] = {{canonical(field)}, false, 8 * sizeof(field)};
        } else {
            Datum datum{{}, true, 8 * sizeof(field[0])};
            for (const auto element : field)
                datum.elements.push_back(canonical(element));
            flat[path] = std::move(datum);
        }
    });
    return flat;
}

template <typename T>
T random(std::mt19937& generator) {
    const uint64_t bits = std::uniform_int_distribution<uint64_t>()(generator);
    if constexpr (std::same_as<T, float>) {
        return std::bit_cast<float>(static_cast<uint32_t>(bits));
    } else {
        return static_cast<T>(bits);
    }
}

// Fills every field, lists with up to three elements, stacks with up to three layers.
template <typename R>
R randomRecord(std::mt19937& generator) {
    std::uniform_int_distribution<size_t> length(0, 3);
    R record;
    if constexpr (requires { record.layers; }) record.layers.resize(length(generator));
    forEachLeaf(record, [&](const std::string&, auto& field) {
        using Field = std::remove_cvref_t<decltype(field)>;
        if constexpr (std::is_arithmetic_v<Field>) {
            field = random<Field>(generator);
        } else {
            field.resize(length(generator));
            for (auto& element : field) {
                element = random<std::remove_cvref_t<decltype(element)>>(generator);
            }
        }
    });
    return record;
}

}  // namespace fields
