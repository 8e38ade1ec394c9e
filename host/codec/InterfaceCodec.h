#pragma once

#include <concepts>
#include <memory>
#include <string>
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
#include <android/binder_auto_utils.h>
#include <android/binder_enums.h>
#include <android/binder_interface_utils.h>

#include "host/codec/Codec.h"
#include "host/codec/Descriptor.h"

namespace codec {

namespace display = aidl::vendor::lumenforge::hardware::display;

template <>
inline constexpr auto kFields<display::HwcRect> = rectFields<display::HwcRect>();
template <>
inline constexpr auto kFields<display::LayerRect> = rectFields<display::LayerRect>();
template <>
inline constexpr auto kFields<display::LayerTransform> =
        layerTransformFields<display::LayerTransform>();
template <>
inline constexpr auto kFields<display::ColorMetaData> =
        colorMetaDataFields<display::ColorMetaData>();
template <>
inline constexpr auto kFields<display::BufferInfo> = bufferInfoFields<display::BufferInfo>();
template <>
inline constexpr auto kFields<display::LayerBuffer> = layerBufferFields<display::LayerBuffer>();
template <>
inline constexpr auto kFields<display::Layer> = layerFields<display::Layer>();
template <>
inline constexpr auto kFields<display::LayerStack> = layerStackFields<display::LayerStack>();
template <>
inline constexpr auto kFields<display::DisplayConfigVariableInfo> =
        variableInfoFields<display::DisplayConfigVariableInfo>();
template <>
inline constexpr auto kFields<display::VelaFixedConfig> =
        fixedConfigFields<display::VelaFixedConfig>();
template <>
inline constexpr auto kFields<display::LutData> = lutFields<display::LutData>();
template <>
inline constexpr auto kFields<display::ContentSamples> = samplesFields<display::ContentSamples>();

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

/**
 * A descriptor is read from a file to open, "path" or {"path": ...} (for reading and writing where
 * that is allowed), or from {"size": ...}, which gives a file in memory of so many zero bytes. It
 * is written as {"kind", "size"}, which stands for it when it is read again.
 */
template <>
struct Codec<ndk::ScopedFileDescriptor> {
    static bool read(const Json& json, ndk::ScopedFileDescriptor* out, std::string* error) {
        const int fd = openDescriptor(json, error);
        out->set(fd);
        return fd >= 0;
    }
    static Json write(const ndk::ScopedFileDescriptor& fd) { return describeDescriptor(fd.get()); }
    static std::string type() { return "ParcelFileDescriptor"; }
};

/** Objects have a name, not a form; whoever reads or writes them knows it. */
template <std::derived_from<ndk::ICInterface> T>
struct Codec<std::shared_ptr<T>> {
    static std::string type() { return shortName(T::descriptor); }
};

}  // namespace codec
