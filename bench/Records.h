#pragma once

#include <cstddef>

#include <aidl/vendor/lumenforge/hardware/display/LayerStack.h>

namespace bench {

/** So many layers whose lists, and the stack's own, have so many elements each. */
inline auto makeStack(size_t layers, size_t elements) {
    ::aidl::vendor::lumenforge::hardware::display::LayerStack stack;
    stack.layers.resize(layers);
    for (auto& layer : stack.layers) {
        layer.value1 = 1;
        layer.layerRect.right = 1920;
        layer.layerRect.bottom = 1080;
        layer.list1.assign(elements, 1);
        layer.layerBuffer.colorMetaData.list1.assign(elements, 2);
        layer.layerBuffer.bufferInfo.list1.assign(elements, 3);
    }
    stack.list1.assign(elements, 4);
    return stack;
}

}  // namespace bench
