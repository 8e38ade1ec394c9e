#pragma once

#include <cstddef>

#include <aidl/vendor/lumenforge/hardware/display/LayerStack.h>

namespace bench {

/** So many layers whose lists, and the stack's own, have so many elements each. */
::aidl::vendor::lumenforge::hardware::display::LayerStack makeStack(size_t layers, size_t elements);

}  // namespace bench
