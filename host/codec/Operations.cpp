#include "host/codec/Operations.h"

#include <map>
#include <utility>

namespace codec {

using display::ISoftVelaClient;
using display::IVela;
using display::IVelaCallback;
using display::IVelaComposerCallback;
using display::IVelaComposerClient;

namespace {

/** The operations that both interfaces declare, in their common order. */
template <typename I>
void addDisplayOperations(std::vector<CallableOperation<I>>* list) {
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

std::vector<CallableOperation<IVela>> makeVelaOperations() {
    using I = IVela;
    std::vector<CallableOperation<I>> list{
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

std::vector<CallableOperation<IVelaComposerClient>> makeComposerOperations() {
    using I = IVelaComposerClient;
    std::vector<CallableOperation<I>> list{
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

// These are never destroyed: callbacks may come while the process ends.

const std::vector<CallableOperation<IVela>>& velaOperations() {
    static const auto& operations = *new auto(makeVelaOperations());
    return operations;
}

const std::vector<CallableOperation<IVelaComposerClient>>& composerOperations() {
    static const auto& operations = *new auto(makeComposerOperations());
    return operations;
}

const std::vector<CallableOperation<IVelaCallback>>& callbackOperations() {
    using I = IVelaCallback;
    static const auto& operations = *new std::vector<CallableOperation<I>>{
            op("onFeatureChanged", &I::onFeatureChanged, "feature", "values"),
    };
    return operations;
}

const std::vector<CallableOperation<ISoftVelaClient>>& softClientOperations() {
    using I = ISoftVelaClient;
    static const auto& operations = *new std::vector<CallableOperation<I>>{
            op("setConfig", &I::setConfig, "id", "config", "values"),
            op("getConfig", &I::getConfig, "id", "config", "values"),
    };
    return operations;
}

const std::vector<CallableOperation<IVelaComposerCallback>>& composerCallbackOperations() {
    using I = IVelaComposerCallback;
    static const auto& operations = *new std::vector<CallableOperation<I>>{
            op("onConfigChanged", &I::onConfigChanged, "display", "config", "values"),
            op("onRefreshRequested", &I::onRefreshRequested, "display"),
            op("onDisplayPowerChanged", &I::onDisplayPowerChanged, "display", "mode"),
            op("onContentSamplingRequested", &I::onContentSamplingRequested, "display", "value1",
               "value2"),
    };
    return operations;
}

const std::map<std::string, Interface>& interfaces() {
    const auto table = [](const char* name, bool isClient, const auto& operations) {
        std::vector<const Operation*> list;
        list.reserve(operations.size());
        for (const auto& operation : operations)
            list.push_back(&operation);
        return Interface{.name = name, .isCallback = isClient, .operations = std::move(list)};
    };
    static const auto& all = *new std::map<std::string, Interface>{
            {IVela::descriptor, table("vela", false, velaOperations())},
            {IVelaComposerClient::descriptor, table("composer", false, composerOperations())},
            {IVelaCallback::descriptor, table("callback", true, callbackOperations())},
            {ISoftVelaClient::descriptor, table("softClient", true, softClientOperations())},
            {IVelaComposerCallback::descriptor,
             table("composerCallback", true, composerCallbackOperations())},
    };
    return all;
}

const Interface* findInterface(const std::string& descriptor) {
    const auto found = interfaces().find(descriptor);
    return found == interfaces().end() ? nullptr : &found->second;
}

std::vector<RecordDescription> recordDescriptions() {
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

}  // namespace codec
