#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/DisplayConfigVariableInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/HwcRect.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerStack.h>
#include <aidl/vendor/lumenforge/hardware/display/LutData.h>
#include <aidl/vendor/lumenforge/hardware/display/VelaFixedConfig.h>

#include "records/V1_1/types.h"
#include "records/V1_2/types.h"

// The fields of the interface's and the library's records by name, so that tests can fill, change
// and compare records of either family. A path such as "layers[1].layerBuffer.value2" is the same
// datum on both sides. Native handles are not among the fields.
namespace fields {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;
namespace V1_2 = ::vendor::lumenforge::hardware::display::V1_2;

template <typename R, typename... Ts>
concept OneOf = (std::same_as<std::remove_const_t<R>, Ts> || ...);

template <OneOf<display::HwcRect, V1_1::HwcRect, display::LayerRect, V1_1::LayerRect> R, typename V>
void visit(R& r, V v) {
    v("left", r.left), v("top", r.top), v("right", r.right), v("bottom", r.bottom);
}

template <OneOf<display::LayerTransform, V1_1::LayerTransform> R, typename V>
void visit(R& r, V v) {
    v("real1", r.real1), v("flag1", r.flag1), v("flag2", r.flag2);
}

template <OneOf<display::ColorMetaData, V1_1::ColorMetaData> R, typename V>
void visit(R& r, V v) {
    v("value1", r.value1), v("value2", r.value2), v("value3", r.value3), v("flag1", r.flag1);
    v("value4", r.value4), v("value5", r.value5), v("flag2", r.flag2), v("value6", r.value6);
    v("list1", r.list1);
}

template <OneOf<display::BufferInfo, V1_1::BufferInfo> R, typename V>
void visit(R& r, V v) {
    v("value1", r.value1), v("value2", r.value2), v("value3", r.value3), v("value4", r.value4);
    v("value5", r.value5), v("value6", r.value6);
    if constexpr (OneOf<R, display::BufferInfo>) v("value7", r.value7), v("value8", r.value8);
    v("real1", r.real1), v("value9", r.value9), v("value10", r.value10), v("value11", r.value11);
    v("list1", r.list1);
}

template <OneOf<display::LayerBuffer, V1_1::LayerBuffer> R, typename V>
void visit(R& r, V v) {
    v("value1", r.value1), v("value2", r.value2), v("value3", r.value3), v("value4", r.value4);
    v("colorMetaData", r.colorMetaData);
    v("value5", r.value5), v("value6", r.value6), v("value7", r.value7);
    v("bufferInfo", r.bufferInfo);
}

template <OneOf<display::Layer, V1_1::Layer> R, typename V>
void visit(R& r, V v) {
    v("layerBuffer", r.layerBuffer), v("value1", r.value1), v("layerRect", r.layerRect);
    v("layerTransform", r.layerTransform), v("value2", r.value2), v("value3", r.value3);
    v("list1", r.list1);
}

template <OneOf<display::LayerStack, V1_1::LayerStack> R, typename V>
void visit(R& r, V v) {
    v("layers", r.layers), v("value1", r.value1), v("list1", r.list1);
}

template <OneOf<display::DisplayConfigVariableInfo, V1_1::DisplayConfigVariableInfo> R, typename V>
void visit(R& r, V v) {
    v("flag1", r.flag1), v("value1", r.value1), v("value2", r.value2), v("real1", r.real1);
    v("real2", r.real2), v("value3", r.value3), v("value4", r.value4), v("flag2", r.flag2);
    v("flag3", r.flag3), v("list1", r.list1);
    if constexpr (OneOf<R, display::DisplayConfigVariableInfo>) v("value5", r.value5);
}

template <OneOf<display::VelaFixedConfig, V1_1::VelaFixedConfig> R, typename V>
void visit(R& r, V v) {
    v("value1", r.value1), v("list1", r.list1), v("value2", r.value2), v("value3", r.value3);
    v("value4", r.value4), v("value5", r.value5), v("value6", r.value6), v("value7", r.value7);
    v("value8", r.value8), v("value9", r.value9), v("value10", r.value10), v("value11", r.value11);
    v("value12", r.value12), v("value13", r.value13), v("value14", r.value14);
    v("value15", r.value15), v("list2", r.list2);
    if constexpr (OneOf<R, display::VelaFixedConfig>) {
        v("value16", r.value16), v("value17", r.value17), v("value18", r.value18);
        v("value19", r.value19), v("value20", r.value20), v("value21", r.value21);
        v("value22", r.value22), v("value23", r.value23), v("value24", r.value24);
    }
}

template <OneOf<display::LutData, V1_1::LutData> R, typename V>
void visit(R& r, V v) {
    v("value1", r.value1), v("value2", r.value2), v("list1", r.list1), v("flag1", r.flag1);
    v("list2", r.list2), v("flag2", r.flag2);
}

template <OneOf<V1_2::DisplayConfigVariableInfo_1_2> R, typename V>
void visit(R& r, V v) {
    v("base", r.base), v("value5", r.value5), v("list2", r.list2);
}

template <OneOf<V1_2::BufferInfo_1_2> R, typename V>
void visit(R& r, V v) {
    v("base", r.base), v("value7", r.value7), v("value8", r.value8), v("list2", r.list2);
}

template <OneOf<V1_2::VelaFixedConfig_1_2> R, typename V>
void visit(R& r, V v) {
    v("base", r.base), v("value16", r.value16), v("value17", r.value17), v("value18", r.value18);
    v("value19", r.value19), v("value20", r.value20), v("value21", r.value21);
    v("value22", r.value22), v("value23", r.value23), v("value24", r.value24);
    v("list3", r.list3);
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
