#pragma once

#include <string>

#include "host/codec/Codec.h"
#include "host/codec/Descriptor.h"
#include "servicelib/VelaService.h"

// The JSON form of what crosses the service library's border. It is only ever written.

namespace codec {

namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

template <>
inline constexpr auto kFields<hwc_rect> = rectFields<hwc_rect>();
template <>
inline constexpr auto kFields<V1_1::LayerRect> = rectFields<V1_1::LayerRect>();
template <>
inline constexpr auto kFields<V1_1::LayerTransform> = layerTransformFields<V1_1::LayerTransform>();
template <>
inline constexpr auto kFields<V1_1::ColorMetaData> = colorMetaDataFields<V1_1::ColorMetaData>();
template <>
inline constexpr auto kFields<V1_1::BufferInfo> = bufferInfoFields<V1_1::BufferInfo>();
/** Without the handle, which nobody fills. */
template <>
inline constexpr auto kFields<V1_1::LayerBuffer> = layerBufferFields<V1_1::LayerBuffer>();
template <>
inline constexpr auto kFields<V1_1::Layer> = layerFields<V1_1::Layer>();
template <>
inline constexpr auto kFields<V1_1::LayerStack> = layerStackFields<V1_1::LayerStack>();
template <>
inline constexpr auto kFields<V1_1::DisplayConfigVariableInfo> =
        variableInfoFields<V1_1::DisplayConfigVariableInfo>();
template <>
inline constexpr auto kFields<V1_1::VelaFixedConfig> = fixedConfigFields<V1_1::VelaFixedConfig>();
template <>
inline constexpr auto kFields<V1_1::LutData> = lutFields<V1_1::LutData>();
template <>
inline constexpr auto kFields<lmfg::VelaContentSamples> = samplesFields<lmfg::VelaContentSamples>();

template <typename T>
struct Codec<::android::hardware::hidl_vec<T>> {
    static Json write(const ::android::hardware::hidl_vec<T>& values) {
        Json json = Json::array();
        for (const T& value : values)
            json.push_back(Codec<T>::write(value));
        return json;
    }
};

template <>
struct Codec<::android::hardware::hidl_string> {
    static Json write(const ::android::hardware::hidl_string& text) {
        return std::string(text.c_str(), text.size());
    }
};

template <>
struct Codec<::android::hardware::hidl_handle> {
    static Json write(const ::android::hardware::hidl_handle& handle) {
        const native_handle_t* const it = handle.getNativeHandle();
        Json json = Json::array();
        for (int i = 0; it != nullptr && i < it->numFds; ++i)
            json.push_back(describeDescriptor(it->data[i]));
        return json;
    }
};

}  // namespace codec
