#pragma once

#include <cstddef>
#include <cstdint>

#include <hidl/HidlSupport.h>

/**
 * The service library's records, version 1.1. They cross a library boundary by reference, so member
 * order and widths are a contract; the assertions hold them to the layout that the HIDL compiler
 * gives them on a 64-bit machine. Flags are raw bytes: any value is carried, not only 0 and 1.
 */
namespace vendor::lumenforge::hardware::display::V1_1 {

using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_vec;

struct HwcRect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;
};

struct LayerRect {
    float left = 0;
    float top = 0;
    float right = 0;
    float bottom = 0;
};

struct LayerTransform {
    float real1 = 0;
    uint8_t flag1 = 0;
    uint8_t flag2 = 0;
};

struct ColorMetaData {
    int32_t value1 = 0;
    int32_t value2 = 0;
    int32_t value3 = 0;
    uint8_t flag1 = 0;
    int32_t value4 = 0;
    int32_t value5 = 0;
    uint8_t flag2 = 0;
    int32_t value6 = 0;
    hidl_vec<uint8_t> list1;
};

/** `value7` and `value8` came with version 1.2. */
struct BufferInfo {
    int64_t value1 = 0;
    int32_t value2 = 0;
    int32_t value3 = 0;
    int32_t value4 = 0;
    int32_t value5 = 0;
    int32_t value6 = 0;
    float real1 = 0;
    int32_t value9 = 0;
    int32_t value10 = 0;
    int64_t value11 = 0;
    hidl_vec<int32_t> list1;
};

struct LayerBuffer {
    int32_t value1 = 0;
    int32_t value2 = 0;
    int32_t value3 = 0;
    int32_t value4 = 0;
    ColorMetaData colorMetaData;
    int32_t value5 = 0;
    int32_t value6 = 0;
    int32_t value7 = 0;
    hidl_handle handle;
    BufferInfo bufferInfo;
};

struct Layer {
    LayerBuffer layerBuffer;
    int32_t value1 = 0;
    LayerRect layerRect;
    LayerTransform layerTransform;
    uint8_t value2 = 0;
    int32_t value3 = 0;
    hidl_vec<int32_t> list1;
};

struct LayerStack {
    hidl_vec<Layer> layers;
    int32_t value1 = 0;
    hidl_vec<int32_t> list1;
};

struct DisplayConfigVariableInfo {
    uint8_t flag1 = 0;
    int32_t value1 = 0;
    int32_t value2 = 0;
    float real1 = 0;
    float real2 = 0;
    int32_t value3 = 0;
    uint32_t value4 = 0;
    uint8_t flag2 = 0;
    uint8_t flag3 = 0;
    hidl_vec<int32_t> list1;
};

struct VelaFixedConfig {
    int32_t value1 = 0;
    hidl_vec<int32_t> list1;
    int32_t value2 = 0;
    int32_t value3 = 0;
    int32_t value4 = 0;
    int32_t value5 = 0;
    int32_t value6 = 0;
    int32_t value7 = 0;
    int32_t value8 = 0;
    int32_t value9 = 0;
    int32_t value10 = 0;
    int32_t value11 = 0;
    int32_t value12 = 0;
    int32_t value13 = 0;
    int32_t value14 = 0;
    int32_t value15 = 0;
    hidl_vec<int32_t> list2;
};

struct LutData {
    uint16_t value1 = 0;
    uint16_t value2 = 0;
    hidl_vec<int32_t> list1;
    uint8_t flag1 = 0;
    hidl_vec<uint16_t> list2;
    uint8_t flag2 = 0;
};

static_assert(sizeof(HwcRect) == 16 && alignof(HwcRect) == 4);
static_assert(offsetof(HwcRect, left) == 0);
static_assert(offsetof(HwcRect, top) == 4);
static_assert(offsetof(HwcRect, right) == 8);
static_assert(offsetof(HwcRect, bottom) == 12);

static_assert(sizeof(LayerRect) == 16 && alignof(LayerRect) == 4);
static_assert(offsetof(LayerRect, left) == 0);
static_assert(offsetof(LayerRect, top) == 4);
static_assert(offsetof(LayerRect, right) == 8);
static_assert(offsetof(LayerRect, bottom) == 12);

static_assert(sizeof(LayerTransform) == 8 && alignof(LayerTransform) == 4);
static_assert(offsetof(LayerTransform, real1) == 0);
static_assert(offsetof(LayerTransform, flag1) == 4);
static_assert(offsetof(LayerTransform, flag2) == 5);

static_assert(sizeof(ColorMetaData) == 48 && alignof(ColorMetaData) == 8);
static_assert(offsetof(ColorMetaData, value1) == 0);
static_assert(offsetof(ColorMetaData, value2) == 4);
static_assert(offsetof(ColorMetaData, value3) == 8);
static_assert(offsetof(ColorMetaData, flag1) == 12);
static_assert(offsetof(ColorMetaData, value4) == 16);
static_assert(offsetof(ColorMetaData, value5) == 20);
static_assert(offsetof(ColorMetaData, flag2) == 24);
static_assert(offsetof(ColorMetaData, value6) == 28);
static_assert(offsetof(ColorMetaData, list1) == 32);

static_assert(sizeof(BufferInfo) == 64 && alignof(BufferInfo) == 8);
static_assert(offsetof(BufferInfo, value1) == 0);
static_assert(offsetof(BufferInfo, value2) == 8);
static_assert(offsetof(BufferInfo, value3) == 12);
static_assert(offsetof(BufferInfo, value4) == 16);
static_assert(offsetof(BufferInfo, value5) == 20);
static_assert(offsetof(BufferInfo, value6) == 24);
static_assert(offsetof(BufferInfo, real1) == 28);
static_assert(offsetof(BufferInfo, value9) == 32);
static_assert(offsetof(BufferInfo, value10) == 36);
static_assert(offsetof(BufferInfo, value11) == 40);
static_assert(offsetof(BufferInfo, list1) == 48);

static_assert(sizeof(LayerBuffer) == 160 && alignof(LayerBuffer) == 8);
static_assert(offsetof(LayerBuffer, value1) == 0);
static_assert(offsetof(LayerBuffer, value2) == 4);
static_assert(offsetof(LayerBuffer, value3) == 8);
static_assert(offsetof(LayerBuffer, value4) == 12);
static_assert(offsetof(LayerBuffer, colorMetaData) == 16);
static_assert(offsetof(LayerBuffer, value5) == 64);
static_assert(offsetof(LayerBuffer, value6) == 68);
static_assert(offsetof(LayerBuffer, value7) == 72);
static_assert(offsetof(LayerBuffer, handle) == 80);
static_assert(offsetof(LayerBuffer, bufferInfo) == 96);

static_assert(sizeof(Layer) == 216 && alignof(Layer) == 8);
static_assert(offsetof(Layer, layerBuffer) == 0);
static_assert(offsetof(Layer, value1) == 160);
static_assert(offsetof(Layer, layerRect) == 164);
static_assert(offsetof(Layer, layerTransform) == 180);
static_assert(offsetof(Layer, value2) == 188);
static_assert(offsetof(Layer, value3) == 192);
static_assert(offsetof(Layer, list1) == 200);

static_assert(sizeof(LayerStack) == 40 && alignof(LayerStack) == 8);
static_assert(offsetof(LayerStack, layers) == 0);
static_assert(offsetof(LayerStack, value1) == 16);
static_assert(offsetof(LayerStack, list1) == 24);

static_assert(sizeof(DisplayConfigVariableInfo) == 48 && alignof(DisplayConfigVariableInfo) == 8);
static_assert(offsetof(DisplayConfigVariableInfo, flag1) == 0);
static_assert(offsetof(DisplayConfigVariableInfo, value1) == 4);
static_assert(offsetof(DisplayConfigVariableInfo, value2) == 8);
static_assert(offsetof(DisplayConfigVariableInfo, real1) == 12);
static_assert(offsetof(DisplayConfigVariableInfo, real2) == 16);
static_assert(offsetof(DisplayConfigVariableInfo, value3) == 20);
static_assert(offsetof(DisplayConfigVariableInfo, value4) == 24);
static_assert(offsetof(DisplayConfigVariableInfo, flag2) == 28);
static_assert(offsetof(DisplayConfigVariableInfo, flag3) == 29);
static_assert(offsetof(DisplayConfigVariableInfo, list1) == 32);

static_assert(sizeof(VelaFixedConfig) == 96 && alignof(VelaFixedConfig) == 8);
static_assert(offsetof(VelaFixedConfig, value1) == 0);
static_assert(offsetof(VelaFixedConfig, list1) == 8);
static_assert(offsetof(VelaFixedConfig, value2) == 24);
static_assert(offsetof(VelaFixedConfig, value3) == 28);
static_assert(offsetof(VelaFixedConfig, value4) == 32);
static_assert(offsetof(VelaFixedConfig, value5) == 36);
static_assert(offsetof(VelaFixedConfig, value6) == 40);
static_assert(offsetof(VelaFixedConfig, value7) == 44);
static_assert(offsetof(VelaFixedConfig, value8) == 48);
static_assert(offsetof(VelaFixedConfig, value9) == 52);
static_assert(offsetof(VelaFixedConfig, value10) == 56);
static_assert(offsetof(VelaFixedConfig, value11) == 60);
static_assert(offsetof(VelaFixedConfig, value12) == 64);
static_assert(offsetof(VelaFixedConfig, value13) == 68);
static_assert(offsetof(VelaFixedConfig, value14) == 72);
static_assert(offsetof(VelaFixedConfig, value15) == 76);
static_assert(offsetof(VelaFixedConfig, list2) == 80);

static_assert(sizeof(LutData) == 56 && alignof(LutData) == 8);
static_assert(offsetof(LutData, value1) == 0);
static_assert(offsetof(LutData, value2) == 2);
static_assert(offsetof(LutData, list1) == 8);
static_assert(offsetof(LutData, flag1) == 24);
static_assert(offsetof(LutData, list2) == 32);
static_assert(offsetof(LutData, flag2) == 48);

}  // namespace vendor::lumenforge::hardware::display::V1_1
