#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <random>
#include <tuple>
#include <type_traits>

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

// The fields of the interface's and the library's records by name, so that tests can fill and
// compare records of either family. Native handles are not among the fields.
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

template <typename T>
void fill(T& value, std::mt19937& generator) {
    if constexpr (codec::Record<T>) {
        visit(value, [&](const char*, auto& field) { fill(field, generator); });
    } else if constexpr (requires { value.resize(1); }) {
        value.resize(generator() % 4);
        for (auto& element : value)
            fill(element, generator);
    } else {
        const uint64_t bits = std::uniform_int_distribution<uint64_t>()(generator);
        if constexpr (std::same_as<T, float>) {
            value = std::bit_cast<float>(static_cast<uint32_t>(bits));
        } else {
            value = static_cast<T>(bits);
        }
    }
}

// Fills every field, lists with up to three elements, stacks with up to three layers.
template <typename R>
R randomRecord(std::mt19937& generator) {
    R record;
    fill(record, generator);
    return record;
}

template <typename R>
codec::Json toJson(const R& record) {
    return codec::Codec<R>::write(record);
}

}  // namespace fields
