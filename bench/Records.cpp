#include "bench/Records.h"

namespace bench {

namespace display = ::aidl::vendor::lumenforge::hardware::display;

display::LayerStack makeStack(size_t layers, size_t elements) {
    display::LayerStack stack;
    stack.layers.resize(layers);
    for (display::Layer& layer : stack.layers) {
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
