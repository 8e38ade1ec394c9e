#include "host/velahost/TracingChip.h"

#include <utility>

using Span = TraceWriter::Span;

TracingChip::TracingChip(std::shared_ptr<lmfg::Chip> chip, std::shared_ptr<TraceWriter> trace)
    : mChip(std::move(chip)), mTrace(std::move(trace)) {}

void TracingChip::start(lmfg::VelaServiceCallbacks events) {
    mChip->start(events);
}

void TracingChip::stop() {
    mChip->stop();
}

void TracingChip::initialize(uint32_t value4, uint32_t value1, uint32_t value2) {
    const Span span(mTrace.get(), "initialize");
    mChip->initialize(value4, value1, value2);
}

void TracingChip::initSoftVela() {
    const Span span(mTrace.get(), "initSoftVela");
    mChip->initSoftVela();
}

lmfg::Chip::Return<void> TracingChip::velaConfigureGet(int type, const hidl_vec<int>& params,
                                                       ValuesResult result) {
    const Span span(mTrace.get(), "velaConfigureGet");
    return mChip->velaConfigureGet(type, params, std::move(result));
}

lmfg::Chip::Return<int32_t> TracingChip::velaConfigureSet(int type, const hidl_vec<int>& values) {
    const Span span(mTrace.get(), "velaConfigureSet");
    return mChip->velaConfigureSet(type, values);
}

lmfg::Chip::Return<void> TracingChip::velaConfigureBatch(int type, const hidl_string& request,
                                                         StringResult result) {
    const Span span(mTrace.get(), "velaConfigureBatch");
    return mChip->velaConfigureBatch(type, request, std::move(result));
}

int TracingChip::velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                                     uint32_t size) {
    const Span span(mTrace.get(), "velaConfigureBuffer");
    return mChip->velaConfigureBuffer(type, param, buffer, size);
}

lmfg::Chip::Return<void> TracingChip::panelReadWrite(bool arg1, uint8_t arg2, uint8_t arg3,
                                                     bool arg4, const hidl_vec<uint8_t>& data,
                                                     uint8_t arg6, BytesResult result) {
    const Span span(mTrace.get(), "panelReadWrite");
    return mChip->panelReadWrite(arg1, arg2, arg3, arg4, data, arg6, std::move(result));
}

void TracingChip::getDumpString(uint64_t display, DumpResult result) {
    const Span span(mTrace.get(), "getDumpString");
    mChip->getDumpString(display, std::move(result));
}

void TracingChip::getCurrentConfig(FixedConfigResult result) {
    const Span span(mTrace.get(), "getCurrentConfig");
    mChip->getCurrentConfig(std::move(result));
}

void TracingChip::getLayerToneMappingLut(uint64_t layer, uint32_t arg2, LutResult result) {
    const Span span(mTrace.get(), "getLayerToneMappingLut");
    mChip->getLayerToneMappingLut(layer, arg2, std::move(result));
}

void TracingChip::updateDisplayBrightness(uint64_t display, int arg2, const hidl_vec<int>& values,
                                          ValuesResult result) {
    const Span span(mTrace.get(), "updateDisplayBrightness");
    mChip->updateDisplayBrightness(display, arg2, values, std::move(result));
}

int TracingChip::GetOsdState() {
    const Span span(mTrace.get(), "GetOsdState");
    return mChip->GetOsdState();
}

int TracingChip::GetOsdOverFlow() {
    const Span span(mTrace.get(), "GetOsdOverFlow");
    return mChip->GetOsdOverFlow();
}

void TracingChip::buildLayerStack(int display, const LayerStack& stack) {
    const Span span(mTrace.get(), "buildLayerStack");
    mChip->buildLayerStack(display, stack);
}

int TracingChip::CommitLayerStack(int display, bool arg2) {
    const Span span(mTrace.get(), "CommitLayerStack");
    return mChip->CommitLayerStack(display, arg2);
}

bool TracingChip::Present() {
    const Span span(mTrace.get(), "Present");
    return mChip->Present();
}

bool TracingChip::Present2nd() {
    const Span span(mTrace.get(), "Present2nd");
    return mChip->Present2nd();
}

int TracingChip::PresentDisplay() {
    const Span span(mTrace.get(), "PresentDisplay");
    return mChip->PresentDisplay();
}

void TracingChip::CreateLayer(uint64_t layer, int display) {
    const Span span(mTrace.get(), "CreateLayer");
    mChip->CreateLayer(layer, display);
}

void TracingChip::DestroyLayer(uint64_t layer) {
    const Span span(mTrace.get(), "DestroyLayer");
    mChip->DestroyLayer(layer);
}

void TracingChip::ChangeLayerType(uint64_t layer, int type) {
    const Span span(mTrace.get(), "ChangeLayerType");
    mChip->ChangeLayerType(layer, type);
}

void TracingChip::SetLayerCompositionType(uint64_t layer, int type) {
    const Span span(mTrace.get(), "SetLayerCompositionType");
    mChip->SetLayerCompositionType(layer, type);
}

void TracingChip::SetLayerTransform(uint64_t layer, int transform) {
    const Span span(mTrace.get(), "SetLayerTransform");
    mChip->SetLayerTransform(layer, transform);
}

void TracingChip::SetLayerZOrder(uint64_t layer, uint32_t z) {
    const Span span(mTrace.get(), "SetLayerZOrder");
    mChip->SetLayerZOrder(layer, z);
}

void TracingChip::SetLayerDisplayFrame(uint64_t layer, hwc_rect frame) {
    const Span span(mTrace.get(), "SetLayerDisplayFrame");
    mChip->SetLayerDisplayFrame(layer, frame);
}

void TracingChip::SetLayerSourceCrop(uint64_t layer, hwc_rect crop) {
    const Span span(mTrace.get(), "SetLayerSourceCrop");
    mChip->SetLayerSourceCrop(layer, crop);
}

void TracingChip::setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info) {
    const Span span(mTrace.get(), "setLayerBuffer");
    mChip->setLayerBuffer(display, layer, info);
}

void TracingChip::setLayerProperty(uint32_t property, uint64_t value) {
    const Span span(mTrace.get(), "setLayerProperty");
    mChip->setLayerProperty(property, value);
}

void TracingChip::SetLayerSetEmpty(int display, bool empty) {
    const Span span(mTrace.get(), "SetLayerSetEmpty");
    mChip->SetLayerSetEmpty(display, empty);
}

void TracingChip::setActiveConfig(const DisplayConfigVariableInfo& info) {
    const Span span(mTrace.get(), "setActiveConfig");
    mChip->setActiveConfig(info);
}

void TracingChip::SetPowerMode(int mode) {
    const Span span(mTrace.get(), "SetPowerMode");
    mChip->SetPowerMode(mode);
}

int TracingChip::SetColorModeWithRenderIntent(int mode, int intent) {
    const Span span(mTrace.get(), "SetColorModeWithRenderIntent");
    return mChip->SetColorModeWithRenderIntent(mode, intent);
}

int TracingChip::SetColorTransform(const std::vector<float>& matrix) {
    const Span span(mTrace.get(), "SetColorTransform");
    return mChip->SetColorTransform(matrix);
}

int TracingChip::configureVelaMaxcll(int value) {
    const Span span(mTrace.get(), "configureVelaMaxcll");
    return mChip->configureVelaMaxcll(value);
}

int TracingChip::handleDisplayEvent(uint64_t display, int event, int arg3) {
    const Span span(mTrace.get(), "handleDisplayEvent");
    return mChip->handleDisplayEvent(display, event, arg3);
}

int TracingChip::setOsdAutoRefresh(int arg1) {
    const Span span(mTrace.get(), "setOsdAutoRefresh");
    return mChip->setOsdAutoRefresh(arg1);
}

void TracingChip::SetClientTarget(int target) {
    const Span span(mTrace.get(), "SetClientTarget");
    mChip->SetClientTarget(target);
}

void TracingChip::reportDualChannelStatus(int status) {
    const Span span(mTrace.get(), "reportDualChannelStatus");
    mChip->reportDualChannelStatus(status);
}

void TracingChip::enableSecondaryDisplay(bool enabled) {
    const Span span(mTrace.get(), "enableSecondaryDisplay");
    mChip->enableSecondaryDisplay(enabled);
}

void TracingChip::SetPluggableDisplayConnected(bool connected) {
    const Span span(mTrace.get(), "SetPluggableDisplayConnected");
    mChip->SetPluggableDisplayConnected(connected);
}

void TracingChip::SetVirtualDisplayConnected(bool connected) {
    const Span span(mTrace.get(), "SetVirtualDisplayConnected");
    mChip->SetVirtualDisplayConnected(connected);
}

void TracingChip::setFrameBufferResolution(int display, uint32_t width, uint32_t height) {
    const Span span(mTrace.get(), "setFrameBufferResolution");
    mChip->setFrameBufferResolution(display, width, height);
}

void TracingChip::setPanelName(int display, const std::string& name) {
    const Span span(mTrace.get(), "setPanelName");
    mChip->setPanelName(display, name);
}
