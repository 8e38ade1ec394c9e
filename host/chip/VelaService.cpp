#include "servicelib/VelaService.h"

#include <memory>
#include <mutex>
#include <utility>

#include <android-base/thread_annotations.h>

#include "host/chip/ChipHost.h"
#include "host/chip/Observed.h"

namespace lmfg {

Chip::~Chip() = default;

namespace {

struct Host {
    std::mutex lock;
    ServiceState state GUARDED_BY(lock);
    std::unique_ptr<VelaService> service GUARDED_BY(lock);
};

// Never destroyed: static objects of other libraries still use the service object when they go.
Host& host() {
    static Host* const instance = new Host;
    return *instance;
}

const ServiceState& stateOf(void* state) {
    if (state == nullptr) ::android::hardware::details::logAlwaysFatal("no chip is installed");
    return *static_cast<const ServiceState*>(state);
}

}  // namespace

void installChip(std::shared_ptr<Chip> chip, ChipObservers observers) {
    Host& it = host();
    // Goes after the lock: stopping the old chip waits for its events, which may call init().
    std::unique_ptr<VelaService> old;
    const std::lock_guard<std::mutex> guard(it.lock);
    old = std::move(it.service);
    it.state = {.chip = std::move(chip)};
    it.state.observers->set(std::move(observers));
}

void observeChip(ChipObservers observers) {
    Host& it = host();
    const std::lock_guard<std::mutex> guard(it.lock);
    it.state.observers->set(std::move(observers));
}

VelaService* VelaService::init() {
    Host& it = host();
    const std::lock_guard<std::mutex> guard(it.lock);
    if (it.state.chip == nullptr) return nullptr;
    if (it.service == nullptr) {
        it.service = std::make_unique<VelaService>();
        it.service->mState = new ServiceState(it.state);
        it.state.chip->start(VelaServiceCallbacks(*it.service));
    }
    return it.service.get();
}

VelaService::VelaService() = default;

VelaService::~VelaService() {
    if (mState == nullptr) return;
    stateOf(mState).chip->stop();
    delete static_cast<ServiceState*>(mState);
}

void VelaService::initialize(uint32_t value4, uint32_t value1, uint32_t value2) {
    forward(stateOf(mState), "initialize", &Chip::initialize, value4, value1, value2);
}

void VelaService::initSoftVela() {
    forward(stateOf(mState), "initSoftVela", &Chip::initSoftVela);
}

VelaService::Return<void> VelaService::velaConfigureGet(int type, const hidl_vec<int>& params,
                                                        ValuesResult result) {
    return forward(stateOf(mState), "velaConfigureGet", &Chip::velaConfigureGet, type, params,
                   std::move(result));
}

VelaService::Return<int32_t> VelaService::velaConfigureSet(int type, const hidl_vec<int>& values) {
    return forward(stateOf(mState), "velaConfigureSet", &Chip::velaConfigureSet, type, values);
}

VelaService::Return<void> VelaService::velaConfigureBatch(int type, const hidl_string& request,
                                                          StringResult result) {
    return forward(stateOf(mState), "velaConfigureBatch", &Chip::velaConfigureBatch, type, request,
                   std::move(result));
}

int VelaService::velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                                     uint32_t size) {
    return forward(stateOf(mState), "velaConfigureBuffer", &Chip::velaConfigureBuffer, type, param,
                   buffer, size);
}

VelaService::Return<void> VelaService::panelReadWrite(bool arg1, uint8_t arg2, uint8_t arg3,
                                                      bool arg4, const hidl_vec<uint8_t>& data,
                                                      uint8_t arg6, BytesResult result) {
    return forward(stateOf(mState), "panelReadWrite", &Chip::panelReadWrite, arg1, arg2, arg3, arg4,
                   data, arg6, std::move(result));
}

void VelaService::getDumpString(uint64_t display, DumpResult result) {
    forward(stateOf(mState), "getDumpString", &Chip::getDumpString, display, std::move(result));
}

void VelaService::getCurrentConfig(FixedConfigResult result) {
    forward(stateOf(mState), "getCurrentConfig", &Chip::getCurrentConfig, std::move(result));
}

void VelaService::getLayerToneMappingLut(uint64_t layer, uint32_t arg2, LutResult result) {
    forward(stateOf(mState), "getLayerToneMappingLut", &Chip::getLayerToneMappingLut, layer, arg2,
            std::move(result));
}

void VelaService::updateDisplayBrightness(uint64_t display, int arg2, const hidl_vec<int>& values,
                                          ValuesResult result) {
    forward(stateOf(mState), "updateDisplayBrightness", &Chip::updateDisplayBrightness, display,
            arg2, values, std::move(result));
}

int VelaService::GetOsdState() {
    return forward(stateOf(mState), "GetOsdState", &Chip::GetOsdState);
}

int VelaService::GetOsdOverFlow() {
    return forward(stateOf(mState), "GetOsdOverFlow", &Chip::GetOsdOverFlow);
}

void VelaService::buildLayerStack(int display, const LayerStack& stack) {
    forward(stateOf(mState), "buildLayerStack", &Chip::buildLayerStack, display, stack);
}

int VelaService::CommitLayerStack(int display, bool arg2) {
    return forward(stateOf(mState), "CommitLayerStack", &Chip::CommitLayerStack, display, arg2);
}

bool VelaService::Present() {
    return forward(stateOf(mState), "Present", &Chip::Present);
}

bool VelaService::Present2nd() {
    return forward(stateOf(mState), "Present2nd", &Chip::Present2nd);
}

int VelaService::PresentDisplay() {
    return forward(stateOf(mState), "PresentDisplay", &Chip::PresentDisplay);
}

void VelaService::CreateLayer(uint64_t layer, int display) {
    forward(stateOf(mState), "CreateLayer", &Chip::CreateLayer, layer, display);
}

void VelaService::DestroyLayer(uint64_t layer) {
    forward(stateOf(mState), "DestroyLayer", &Chip::DestroyLayer, layer);
}

void VelaService::ChangeLayerType(uint64_t layer, int type) {
    forward(stateOf(mState), "ChangeLayerType", &Chip::ChangeLayerType, layer, type);
}

void VelaService::SetLayerCompositionType(uint64_t layer, int type) {
    forward(stateOf(mState), "SetLayerCompositionType", &Chip::SetLayerCompositionType, layer,
            type);
}

void VelaService::SetLayerTransform(uint64_t layer, int transform) {
    forward(stateOf(mState), "SetLayerTransform", &Chip::SetLayerTransform, layer, transform);
}

void VelaService::SetLayerZOrder(uint64_t layer, uint32_t z) {
    forward(stateOf(mState), "SetLayerZOrder", &Chip::SetLayerZOrder, layer, z);
}

void VelaService::SetLayerDisplayFrame(uint64_t layer, hwc_rect frame) {
    forward(stateOf(mState), "SetLayerDisplayFrame", &Chip::SetLayerDisplayFrame, layer, frame);
}

void VelaService::SetLayerSourceCrop(uint64_t layer, hwc_rect crop) {
    forward(stateOf(mState), "SetLayerSourceCrop", &Chip::SetLayerSourceCrop, layer, crop);
}

void VelaService::setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info) {
    forward(stateOf(mState), "setLayerBuffer", &Chip::setLayerBuffer, display, layer, info);
}

void VelaService::setLayerProperty(uint32_t property, uint64_t value) {
    forward(stateOf(mState), "setLayerProperty", &Chip::setLayerProperty, property, value);
}

void VelaService::SetLayerSetEmpty(int display, bool empty) {
    forward(stateOf(mState), "SetLayerSetEmpty", &Chip::SetLayerSetEmpty, display, empty);
}

void VelaService::setActiveConfig(const DisplayConfigVariableInfo& info) {
    forward(stateOf(mState), "setActiveConfig", &Chip::setActiveConfig, info);
}

void VelaService::SetPowerMode(int mode) {
    forward(stateOf(mState), "SetPowerMode", &Chip::SetPowerMode, mode);
}

int VelaService::SetColorModeWithRenderIntent(int mode, int intent) {
    return forward(stateOf(mState), "SetColorModeWithRenderIntent",
                   &Chip::SetColorModeWithRenderIntent, mode, intent);
}

int VelaService::SetColorTransform(const std::vector<float>& matrix) {
    return forward(stateOf(mState), "SetColorTransform", &Chip::SetColorTransform, matrix);
}

int VelaService::configureVelaMaxcll(int value) {
    return forward(stateOf(mState), "configureVelaMaxcll", &Chip::configureVelaMaxcll, value);
}

int VelaService::handleDisplayEvent(uint64_t display, int event, int arg3) {
    return forward(stateOf(mState), "handleDisplayEvent", &Chip::handleDisplayEvent, display, event,
                   arg3);
}

int VelaService::setOsdAutoRefresh(int arg1) {
    return forward(stateOf(mState), "setOsdAutoRefresh", &Chip::setOsdAutoRefresh, arg1);
}

void VelaService::SetClientTarget(int target) {
    forward(stateOf(mState), "SetClientTarget", &Chip::SetClientTarget, target);
}

void VelaService::reportDualChannelStatus(int status) {
    forward(stateOf(mState), "reportDualChannelStatus", &Chip::reportDualChannelStatus, status);
}

void VelaService::enableSecondaryDisplay(bool enabled) {
    forward(stateOf(mState), "enableSecondaryDisplay", &Chip::enableSecondaryDisplay, enabled);
}

void VelaService::SetPluggableDisplayConnected(bool connected) {
    forward(stateOf(mState), "SetPluggableDisplayConnected", &Chip::SetPluggableDisplayConnected,
            connected);
}

void VelaService::SetVirtualDisplayConnected(bool connected) {
    forward(stateOf(mState), "SetVirtualDisplayConnected", &Chip::SetVirtualDisplayConnected,
            connected);
}

void VelaService::setFrameBufferResolution(int display, uint32_t width, uint32_t height) {
    forward(stateOf(mState), "setFrameBufferResolution", &Chip::setFrameBufferResolution, display,
            width, height);
}

void VelaService::setPanelName(int display, const std::string& name) {
    forward(stateOf(mState), "setPanelName", &Chip::setPanelName, display, name);
}

}  // namespace lmfg
