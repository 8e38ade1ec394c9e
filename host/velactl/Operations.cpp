#include "host/velactl/Operations.h"

#include <utility>

namespace velactl {

using display::IVela;
using display::IVelaComposerClient;

namespace {

/** The operations that both interfaces declare, in their common order. */
template <typename I>
void addDisplayOperations(std::vector<Operation<I>>* list) {
    const auto add = [list](auto&&... arguments) { list->push_back(op(arguments...)); };
    add("buildLayerStack", &I::buildLayerStack, "display", "stack");
    add("changeLayerType", &I::changeLayerType, "layer", "type");
    add("commitLayerStack", &I::commitLayerStack, "display", "flags");
    add("configureVelaMaxcll", &I::configureVelaMaxcll, "value");
    add("createLayer", &I::createLayer, "display", "layer");
    add("destroyLayer", &I::destroyLayer, "display", "layer");
    add("enableSecondaryDisplay", &I::enableSecondaryDisplay, "enable");
    add("getCurrentConfig", &I::getCurrentConfig, "display");
    add("getDumpString", &I::getDumpString, "display");
    add("getLayerToneMappingLut", &I::getLayerToneMappingLut, "layer", "table");
    add("getOsdStatus", &I::getOsdStatus, "which");
    add("handleDisplayEvent", &I::handleDisplayEvent, "display", "event", "value");
    add("present", &I::present, "display");
    add("presentDisplay", &I::presentDisplay, "display");
    add("reportDualChannelStatus", &I::reportDualChannelStatus, "status");
    add("setActiveConfig", &I::setActiveConfig, "display", "config");
    add("setClientTarget", &I::setClientTarget, "display", "target");
    add("setColorModeWithRenderIntent", &I::setColorModeWithRenderIntent, "display", "mode",
        "intent");
    add("setDisplayConnected", &I::setDisplayConnected, "display", "connected");
    add("setLayerBuffer", &I::setLayerBuffer, "display", "layer", "buffer");
    add("setLayerCompositionType", &I::setLayerCompositionType, "display", "layer", "type");
    add("setLayerDisplayFrame", &I::setLayerDisplayFrame, "display", "layer", "frame");
    add("setLayerProperty", &I::setLayerProperty, "display", "property", "value");
    add("setLayerSetEmpty", &I::setLayerSetEmpty, "display", "empty");
    add("setLayerSourceCrop", &I::setLayerSourceCrop, "display", "layer", "crop");
    add("setLayerTransform", &I::setLayerTransform, "display", "layer", "transform");
    add("setLayerZOrder", &I::setLayerZOrder, "display", "layer", "z");
    add("setOsdAutoRefresh", &I::setOsdAutoRefresh, "enable");
    add("setPowerMode", &I::setPowerMode, "display", "mode", "first", "second");
    add("updateDisplayBrightness", &I::updateDisplayBrightness, "display", "brightness", "values");
    add("setColorTransform", &I::setColorTransform, "matrix");
    add("configureVelaHdrMode", &I::configureVelaHdrMode, "mode");
}

std::vector<Operation<IVela>> makeVelaOperations() {
    using I = IVela;
    std::vector<Operation<I>> list{
            op("velaConfigureSet", &I::velaConfigureSet, "type", "values"),
            op("velaConfigureGet", &I::velaConfigureGet, "type", "params"),
            op("velaConfigureBatch", &I::velaConfigureBatch, "type", "request"),
            op("velaConfigureBuffer", &I::velaConfigureBuffer, "type", "param", "fd", "size"),
            op("registerCallback", &I::registerCallback, "id", "callback"),
            op("registerSoftVelaClient", &I::registerSoftVelaClient, "id", "client"),
            op("initialize", &I::initialize, "info"),
            op("panelReadWrite", &I::panelReadWrite, "first", "second", "third", "fourth", "data",
               "sixth"),
            op("createComposerClient", &I::createComposerClient),
    };
    addDisplayOperations(&list);
    return list;
}

std::vector<Operation<IVelaComposerClient>> makeComposerOperations() {
    using I = IVelaComposerClient;
    std::vector<Operation<I>> list{
            op("configureValues", &I::configureValues, "type", "values"),
            op("configureBatch", &I::configureBatch, "type", "request"),
            op("configureBuffer", &I::configureBuffer, "type", "param", "fd", "size"),
            op("registerCallback", &I::registerCallback, "callback"),
    };
    addDisplayOperations(&list);
    list.push_back(op("setFrameBufferResolution", &I::setFrameBufferResolution, "display", "width",
                      "height"));
    list.push_back(op("setPanelName", &I::setPanelName, "display", "name"));
    return list;
}

}  // namespace

const std::vector<Operation<IVela>>& velaOperations() {
    static const auto operations = makeVelaOperations();
    return operations;
}

const std::vector<Operation<IVelaComposerClient>>& composerOperations() {
    static const auto operations = makeComposerOperations();
    return operations;
}

std::vector<std::string> recordDescriptions() {
    return {
            Codec<display::HwcRect>::describe(),
            Codec<display::LayerRect>::describe(),
            Codec<display::LayerTransform>::describe(),
            Codec<display::ColorMetaData>::describe(),
            Codec<display::BufferInfo>::describe(),
            Codec<display::LayerBuffer>::describe(),
            Codec<display::Layer>::describe(),
            Codec<display::LayerStack>::describe(),
            Codec<display::DisplayConfigVariableInfo>::describe(),
            Codec<display::VelaFixedConfig>::describe(),
            Codec<display::LutData>::describe(),
            Codec<display::ContentSamples>::describe(),
    };
}

}  // namespace velactl
