#pragma once

#include <cstddef>
#include <cstdint>

#include <hidl/HidlSupport.h>

#include "records/V1_1/types.h"

/** The records of version 1.2: each begins with the version 1.1 record that it extends. */
namespace vendor::lumenforge::hardware::display::V1_2 {

using ::android::hardware::hidl_vec;

struct DisplayConfigVariableInfo_1_2 {
    V1_1::DisplayConfigVariableInfo base;
    int32_t value5 = 0;
    hidl_vec<int32_t> list2;
};

struct BufferInfo_1_2 {
    V1_1::BufferInfo base;
    int32_t value7 = 0;
    int32_t value8 = 0;
    hidl_vec<int32_t> list2;
};

struct VelaFixedConfig_1_2 {
    V1_1::VelaFixedConfig base;
    int32_t value16 = 0;
    int32_t value17 = 0;
    int32_t value18 = 0;
    int32_t value19 = 0;
    int32_t value20 = 0;
    int32_t value21 = 0;
    int32_t value22 = 0;
    int32_t value23 = 0;
    int32_t value24 = 0;
    hidl_vec<int32_t> list3;
};

static_assert(sizeof(DisplayConfigVariableInfo_1_2) == 72);
static_assert(alignof(DisplayConfigVariableInfo_1_2) == 8);
static_assert(offsetof(DisplayConfigVariableInfo_1_2, base) == 0);
static_assert(offsetof(DisplayConfigVariableInfo_1_2, value5) == 48);
static_assert(offsetof(DisplayConfigVariableInfo_1_2, list2) == 56);

static_assert(sizeof(BufferInfo_1_2) == 88 && alignof(BufferInfo_1_2) == 8);
static_assert(offsetof(BufferInfo_1_2, base) == 0);
static_assert(offsetof(BufferInfo_1_2, value7) == 64);
static_assert(offsetof(BufferInfo_1_2, value8) == 68);
static_assert(offsetof(BufferInfo_1_2, list2) == 72);

static_assert(sizeof(VelaFixedConfig_1_2) == 152 && alignof(VelaFixedConfig_1_2) == 8);
static_assert(offsetof(VelaFixedConfig_1_2, base) == 0);
static_assert(offsetof(VelaFixedConfig_1_2, value16) == 96);
static_assert(offsetof(VelaFixedConfig_1_2, value17) == 100);
static_assert(offsetof(VelaFixedConfig_1_2, value18) == 104);
static_assert(offsetof(VelaFixedConfig_1_2, value19) == 108);
static_assert(offsetof(VelaFixedConfig_1_2, value20) == 112);
static_assert(offsetof(VelaFixedConfig_1_2, value21) == 116);
static_assert(offsetof(VelaFixedConfig_1_2, value22) == 120);
static_assert(offsetof(VelaFixedConfig_1_2, value23) == 124);
static_assert(offsetof(VelaFixedConfig_1_2, value24) == 128);
static_assert(offsetof(VelaFixedConfig_1_2, list3) == 136);

}  // namespace vendor::lumenforge::hardware::display::V1_2
