#pragma once

#include <aidl/vendor/lumenforge/hardware/display/BufferInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/ColorMetaData.h>
#include <aidl/vendor/lumenforge/hardware/display/DisplayConfigVariableInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/HwcRect.h>
#include <aidl/vendor/lumenforge/hardware/display/Layer.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerBuffer.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerRect.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerStack.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerTransform.h>
#include <aidl/vendor/lumenforge/hardware/display/LutData.h>
#include <aidl/vendor/lumenforge/hardware/display/VelaFixedConfig.h>

#include "records/V1_1/types.h"
#include "records/V1_2/types.h"

/**
 * From the service library's records to the interface's. Pure functions of their arguments: `out`
 * must not be null, the answer is always true, every value fits because conversions only widen.
 *
 * Lists are appended to what `out` already holds, and a field without a counterpart in `in` keeps
 * its value, so a caller that wants exactly the input passes a fresh record. A V1_2 record's own
 * list follows its base's in the one list that the interface's record has. Flags are carried as raw
 * bytes.
 */
namespace lmfg::h2a {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;
namespace V1_2 = ::vendor::lumenforge::hardware::display::V1_2;

bool translate(const V1_1::DisplayConfigVariableInfo& in, display::DisplayConfigVariableInfo* out);
bool translate(const V1_1::HwcRect& in, display::HwcRect* out);
bool translate(const V1_1::LayerRect& in, display::LayerRect* out);
bool translate(const V1_1::LayerTransform& in, display::LayerTransform* out);
bool translate(const V1_1::ColorMetaData& in, display::ColorMetaData* out);
bool translate(const V1_1::BufferInfo& in, display::BufferInfo* out);
/** value2 and the native handle do not cross in this direction. */
bool translate(const V1_1::LayerBuffer& in, display::LayerBuffer* out);
bool translate(const V1_1::Layer& in, display::Layer* out);
/** Layers of `out` beyond the input's count are dropped; the others are translated in place. */
bool translate(const V1_1::LayerStack& in, display::LayerStack* out);
bool translate(const V1_1::LutData& in, display::LutData* out);
bool translate(const V1_1::VelaFixedConfig& in, display::VelaFixedConfig* out);

bool translate(const V1_2::DisplayConfigVariableInfo_1_2& in,
               display::DisplayConfigVariableInfo* out);
bool translate(const V1_2::BufferInfo_1_2& in, display::BufferInfo* out);
bool translate(const V1_2::VelaFixedConfig_1_2& in, display::VelaFixedConfig* out);

}  // namespace lmfg::h2a
