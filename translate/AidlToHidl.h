#pragma once

#include <aidl/vendor/lumenforge/hardware/display/BufferInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/ColorMetaData.h>
#include <aidl/vendor/lumenforge/hardware/display/DisplayConfigVariableInfo.h>
#include <aidl/vendor/lumenforge/hardware/display/Layer.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerBuffer.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerRect.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerStack.h>
#include <aidl/vendor/lumenforge/hardware/display/LayerTransform.h>
#include <aidl/vendor/lumenforge/hardware/display/VelaFixedConfig.h>

#include "records/V1_1/types.h"

/**
 * From the interface's records to the service library's, version 1.1. Pure functions of their
 * arguments: `out` must not be null, the answer is always true. Values that do not fit lose their
 * upper bits, fields that version 1.1 lacks are dropped, flags are carried as raw bytes.
 *
 * Lists of `out` are replaced; a list beyond 2^32 - 1 elements aborts the process in hidl_vec.
 */
namespace lmfg::a2h {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

/** Of value4 the low 32 bits are kept; value5 is dropped. */
bool translate(const display::DisplayConfigVariableInfo& in, V1_1::DisplayConfigVariableInfo* out);
bool translate(const display::LayerRect& in, V1_1::LayerRect* out);
bool translate(const display::LayerTransform& in, V1_1::LayerTransform* out);
bool translate(const display::ColorMetaData& in, V1_1::ColorMetaData* out);
/** value7 and value8 are dropped. */
bool translate(const display::BufferInfo& in, V1_1::BufferInfo* out);
/** The native handle of `out` is left as it is: the interface record carries none. */
bool translate(const display::LayerBuffer& in, V1_1::LayerBuffer* out);
/** Of value2 the low 8 bits are kept. */
bool translate(const display::Layer& in, V1_1::Layer* out);
bool translate(const display::LayerStack& in, V1_1::LayerStack* out);
/** value16 to value24 are dropped. */
bool translate(const display::VelaFixedConfig& in, V1_1::VelaFixedConfig* out);

}  // namespace lmfg::a2h
