#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>

#include <aidl/vendor/lumenforge/hardware/display/BufferInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/ColorMetaData.h>
#include <aidl/vendor/lumenforge/hardware/display/ContentSamples.h>
#include <aidl/vendor/lumenforge/hardware/display/DisplayConfigVariableInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/HwcRect.h>
#include <aidl/vendor/lumenforge/hardware/display/Layer.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerBuffer.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerRect.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerStack.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerTransform.h>
#include <aidl/vendor/lumenforge/hardware/display/LutData.h>
#include <aidl/vendor/lumenforge/hardware/display/VelaFixedConfig.h>

namespace velactl {

namespace display = aidl::vendor::lumenforge::hardware::display;

/** A named member of a record. */
template <typename T, typename M>
struct Field {
    constexpr Field(const char* n, M T::*m) : name(n), member(m) {}

    const char* name;
    M T::*member;
};

/** The fields of the record T in declaration order; null for what is no record. */
template <typename T>
inline constexpr std::nullptr_t kFields = nullptr;

template <typename T>
concept Record = !std::is_same_v<decltype(kFields<T>), const std::nullptr_t>;

template <>
inline constexpr auto kFields<display::HwcRect> = std::tuple{
        Field{"left", &display::HwcRect::left}, Field{"top", &display::HwcRect::top},
        Field{"right", &display::HwcRect::right}, Field{"bottom", &display::HwcRect::bottom}};

template <>
inline constexpr auto kFields<display::LayerRect> = std::tuple{
        Field{"left", &display::LayerRect::left}, Field{"top", &display::LayerRect::top},
        Field{"right", &display::LayerRect::right}, Field{"bottom", &display::LayerRect::bottom}};

template <>
inline constexpr auto kFields<display::LayerTransform> =
        std::tuple{Field{"real1", &display::LayerTransform::real1},
                   Field{"flag1", &display::LayerTransform::flag1},
                   Field{"flag2", &display::LayerTransform::flag2}};

template <>
inline constexpr auto kFields<display::ColorMetaData> =
        std::tuple{Field{"value1", &display::ColorMetaData::value1},
                   Field{"value2", &display::ColorMetaData::value2},
                   Field{"value3", &display::ColorMetaData::value3},
                   Field{"flag1", &display::ColorMetaData::flag1},
                   Field{"value4", &display::ColorMetaData::value4},
                   Field{"value5", &display::ColorMetaData::value5},
                   Field{"flag2", &display::ColorMetaData::flag2},
                   Field{"value6", &display::ColorMetaData::value6},
                   Field{"list1", &display::ColorMetaData::list1}};

template <>
inline constexpr auto kFields<display::BufferInfo> =
        std::tuple{Field{"value1", &display::BufferInfo::value1},
                   Field{"value2", &display::BufferInfo::value2},
                   Field{"value3", &display::BufferInfo::value3},
                   Field{"value4", &display::BufferInfo::value4},
                   Field{"value5", &display::BufferInfo::value5},
                   Field{"value6", &display::BufferInfo::value6},
                   Field{"value7", &display::BufferInfo::value7},
                   Field{"value8", &display::BufferInfo::value8},
                   Field{"real1", &display::BufferInfo::real1},
                   Field{"value9", &display::BufferInfo::value9},
                   Field{"value10", &display::BufferInfo::value10},
                   Field{"value11", &display::BufferInfo::value11},
                   Field{"list1", &display::BufferInfo::list1}};

template <>
inline constexpr auto kFields<display::LayerBuffer> =
        std::tuple{Field{"value1", &display::LayerBuffer::value1},
                   Field{"value2", &display::LayerBuffer::value2},
                   Field{"value3", &display::LayerBuffer::value3},
                   Field{"value4", &display::LayerBuffer::value4},
                   Field{"colorMetaData", &display::LayerBuffer::colorMetaData},
                   Field{"value5", &display::LayerBuffer::value5},
                   Field{"value6", &display::LayerBuffer::value6},
                   Field{"value7", &display::LayerBuffer::value7},
                   Field{"bufferInfo", &display::LayerBuffer::bufferInfo}};

template <>
inline constexpr auto kFields<display::Layer> =
        std::tuple{Field{"layerBuffer", &display::Layer::layerBuffer},
                   Field{"value1", &display::Layer::value1},
                   Field{"layerRect", &display::Layer::layerRect},
                   Field{"layerTransform", &display::Layer::layerTransform},
                   Field{"value2", &display::Layer::value2},
                   Field{"value3", &display::Layer::value3},
                   Field{"list1", &display::Layer::list1}};

template <>
inline constexpr auto kFields<display::LayerStack> = std::tuple{
        Field{"layers", &display::LayerStack::layers},
        Field{"value1", &display::LayerStack::value1}, Field{"list1", &display::LayerStack::list1}};

template <>
inline constexpr auto kFields<display::DisplayConfigVariableInfo> =
        std::tuple{Field{"flag1", &display::DisplayConfigVariableInfo::flag1},
                   Field{"value1", &display::DisplayConfigVariableInfo::value1},
                   Field{"value2", &display::DisplayConfigVariableInfo::value2},
                   Field{"real1", &display::DisplayConfigVariableInfo::real1},
                   Field{"real2", &display::DisplayConfigVariableInfo::real2},
                   Field{"value3", &display::DisplayConfigVariableInfo::value3},
                   Field{"value4", &display::DisplayConfigVariableInfo::value4},
                   Field{"flag2", &display::DisplayConfigVariableInfo::flag2},
                   Field{"flag3", &display::DisplayConfigVariableInfo::flag3},
                   Field{"value5", &display::DisplayConfigVariableInfo::value5},
                   Field{"list1", &display::DisplayConfigVariableInfo::list1}};

template <>
inline constexpr auto kFields<display::VelaFixedConfig> =
        std::tuple{Field{"value1", &display::VelaFixedConfig::value1},
                   Field{"list1", &display::VelaFixedConfig::list1},
                   Field{"value2", &display::VelaFixedConfig::value2},
                   Field{"value3", &display::VelaFixedConfig::value3},
                   Field{"value4", &display::VelaFixedConfig::value4},
                   Field{"value5", &display::VelaFixedConfig::value5},
                   Field{"value6", &display::VelaFixedConfig::value6},
                   Field{"value7", &display::VelaFixedConfig::value7},
                   Field{"value8", &display::VelaFixedConfig::value8},
                   Field{"value9", &display::VelaFixedConfig::value9},
                   Field{"value10", &display::VelaFixedConfig::value10},
                   Field{"value11", &display::VelaFixedConfig::value11},
                   Field{"value12", &display::VelaFixedConfig::value12},
                   Field{"value13", &display::VelaFixedConfig::value13},
                   Field{"value14", &display::VelaFixedConfig::value14},
                   Field{"value15", &display::VelaFixedConfig::value15},
                   Field{"value16", &display::VelaFixedConfig::value16},
                   Field{"value17", &display::VelaFixedConfig::value17},
                   Field{"value18", &display::VelaFixedConfig::value18},
                   Field{"value19", &display::VelaFixedConfig::value19},
                   Field{"value20", &display::VelaFixedConfig::value20},
                   Field{"value21", &display::VelaFixedConfig::value21},
                   Field{"value22", &display::VelaFixedConfig::value22},
                   Field{"value23", &display::VelaFixedConfig::value23},
                   Field{"value24", &display::VelaFixedConfig::value24},
                   Field{"list2", &display::VelaFixedConfig::list2}};

template <>
inline constexpr auto kFields<display::LutData> = std::tuple{
        Field{"value1", &display::LutData::value1}, Field{"value2", &display::LutData::value2},
        Field{"list1", &display::LutData::list1},   Field{"flag1", &display::LutData::flag1},
        Field{"list2", &display::LutData::list2},   Field{"flag2", &display::LutData::flag2}};

template <>
inline constexpr auto kFields<display::ContentSamples> =
        std::tuple{Field{"value1", &display::ContentSamples::value1},
                   Field{"list1", &display::ContentSamples::list1},
                   Field{"list2", &display::ContentSamples::list2},
                   Field{"list3", &display::ContentSamples::list3},
                   Field{"list4", &display::ContentSamples::list4}};

}  // namespace velactl
