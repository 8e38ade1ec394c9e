#include "servicelib/VelaService.h"

#include <memory>
#include <mutex>
#include <utility>

#include <android-base/thread_annotations.h>

#include "host/chip/ChipHost.h"

namespace lmfg {

Chip::~Chip() = default;

namespace {

struct Host {
    std::mutex lock;
    std::shared_ptr<Chip> chip GUARDED_BY(lock);
    std::unique_ptr<VelaService> service GUARDED_BY(lock);
};

// Never destroyed: static objects of other libraries still use the service object when they go.
Host& host() {
    static Host* const instance = new Host;
    return *instance;
}

Chip& chipOf(void* state) {
    if (state == nullptr) ::android::hardware::details::logAlwaysFatal("no chip is installed");
    return **static_cast<std::shared_ptr<Chip>*>(state);
}

}  // namespace

void installChip(std::shared_ptr<Chip> chip) {
    Host& it = host();
    // Goes after the lock: stopping the old chip waits for its events, which may call init().
    std::unique_ptr<VelaService> old;
    const std::lock_guard<std::mutex> guard(it.lock);
    old = std::move(it.service);
    it.chip = std::move(chip);
}

VelaService* VelaService::init() {
    Host& it = host();
    const std::lock_guard<std::mutex> guard(it.lock);
    if (it.chip == nullptr) return nullptr;
    if (it.service == nullptr) {
        it.service = std::make_unique<VelaService>();
        it.service->mState = new std::shared_ptr<Chip>(it.chip);
        it.chip->start(VelaServiceCallbacks(*it.service));
    }
    return it.service.get();
}

VelaService::VelaService() = default;

VelaService::~VelaService() {
    if (mState == nullptr) return;
    chipOf(mState).stop();
    delete static_cast<std::shared_ptr<Chip>*>(mState);
}

void VelaService::initialize(uint32_t value4, uint32_t value1, uint32_t value2) {
    chipOf(mState).initialize(value4, value1, value2);
}

void VelaService::initSoftVela() {
    chipOf(mState).initSoftVela();
}

VelaService::Return<void> VelaService::velaConfigureGet(int type, const hidl_vec<int>& params,
                                                        ValuesResult result) {
    return chipOf(mState).velaConfigureGet(type, params, std::move(result));
}

VelaService::Return<int32_t> VelaService::velaConfigureSet(int type, const hidl_vec<int>& values) {
    return chipOf(mState).velaConfigureSet(type, values);
}

VelaService::Return<void> VelaService::velaConfigureBatch(int type, const hidl_string& request,
                                                          StringResult result) {
    return chipOf(mState).velaConfigureBatch(type, request, std::move(result));
}

int VelaService::velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                                     uint32_t size) {
    return chipOf(mState).velaConfigureBuffer(type, param, buffer, size);
}

VelaService::Return<void> VelaService::panelReadWrite(bool arg1, uint8_t arg2, uint8_t arg3,
                                                      bool arg4, const hidl_vec<uint8_t>& data,
                                                      uint8_t arg6, BytesResult result) {
    return chipOf(mState).panelReadWrite(arg1, arg2, arg3, arg4, data, arg6, std::move(result));
}

void VelaService::getDumpString(uint64_t display, DumpResult result) {
    chipOf(mState).getDumpString(display, std::move(result));
}

void VelaService::getCurrentConfig(FixedConfigResult result) {
    chipOf(mState).getCurrentConfig(std::move(result));
}

void VelaService::getLayerToneMappingLut(uint64_t layer, uint32_t arg2, LutResult result) {
    chipOf(mState).getLayerToneMappingLut(layer, arg2, std::move(result));
}

void VelaService::updateDisplayBrightness(uint64_t display, int arg2, const hidl_vec<int>& values,
                                          ValuesResult result) {
    chipOf(mState).updateDisplayBrightness(display, arg2, values, std::move(result));
}

int VelaService::GetOsdState() {
    return chipOf(mState).GetOsdState();
}

int VelaService::GetOsdOverFlow() {
    return chipOf(mState).GetOsdOverFlow();
}

void VelaService::buildLayerStack(int display, const LayerStack& stack) {
    chipOf(mState).buildLayerStack(display, stack);
}

int VelaService::CommitLayerStack(int display, bool arg2) {
    return chipOf(mState).CommitLayerStack(display, arg2);
}

bool VelaService::Present() {
    return chipOf(mState).Present();
}

bool VelaService::Present2nd() {
    return chipOf(mState).Present2nd();
}

int VelaService::PresentDisplay() {
    return chipOf(mState).PresentDisplay();
}

void VelaService::CreateLayer(uint64_t layer, int display) {
    chipOf(mState).CreateLayer(layer, display);
}

void VelaService::DestroyLayer(uint64_t layer) {
    chipOf(mState).DestroyLayer(layer);
}

void VelaService::ChangeLayerType(uint64_t layer, int type) {
    chipOf(mState).ChangeLayerType(layer, type);
}

void VelaService::SetLayerCompositionType(uint64_t layer, int type) {
    chipOf(mState).SetLayerCompositionType(layer, type);
}

void VelaService::SetLayerTransform(uint64_t layer, int transform) {
    chipOf(mState).SetLayerTransform(layer, transform);
}

void VelaService::SetLayerZOrder(uint64_t layer, uint32_t z) {
    chipOf(mState).SetLayerZOrder(layer, z);
}

void VelaService::SetLayerDisplayFrame(uint64_t layer, hwc_rect frame) {
    chipOf(mState).SetLayerDisplayFrame(layer, frame);
}

void VelaService::SetLayerSourceCrop(uint64_t layer, hwc_rect crop) {
    chipOf(mState).SetLayerSourceCrop(layer, crop);
}

void VelaService::setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info) {
    chipOf(mState).setLayerBuffer(display, layer, info);
}

void VelaService::setLayerProperty(uint32_t property, uint64_t value) {
    chipOf(mState).setLayerProperty(property, value);
}

void VelaService::SetLayerSetEmpty(int display, bool empty) {
    chipOf(mState).SetLayerSetEmpty(display, empty);
}

void VelaService::setActiveConfig(const DisplayConfigVariableInfo& info) {
    chipOf(mState).setActiveConfig(info);
}

void VelaService::SetPowerMode(int mode) {
    chipOf(mState).SetPowerMode(mode);
}

int VelaService::SetColorModeWithRenderIntent(int mode, int intent) {
    return chipOf(mState).SetColorModeWithRenderIntent(mode, intent);
}

int VelaService::SetColorTransform(const std::vector<float>& matrix) {
    return chipOf(mState).SetColorTransform(matrix);
}

int VelaService::configureVelaMaxcll(int value) {
    return chipOf(mState).configureVelaMaxcll(value);
}

int VelaService::handleDisplayEvent(uint64_t display, int event, int arg3) {
    return chipOf(mState).handleDisplayEvent(display, event, arg3);
}

int VelaService::setOsdAutoRefresh(int arg1) {
    return chipOf(mState).setOsdAutoRefresh(arg1);
}

void VelaService::SetClientTarget(int target) {
    chipOf(mState).SetClientTarget(target);
}

void VelaService::reportDualChannelStatus(int status) {
    chipOf(mState).reportDualChannelStatus(status);
}

void VelaService::enableSecondaryDisplay(bool enabled) {
    chipOf(mState).enableSecondaryDisplay(enabled);
}

void VelaService::SetPluggableDisplayConnected(bool connected) {
    chipOf(mState).SetPluggableDisplayConnected(connected);
}

void VelaService::SetVirtualDisplayConnected(bool connected) {
    chipOf(mState).SetVirtualDisplayConnected(connected);
}

void VelaService::setFrameBufferResolution(int display, uint32_t width, uint32_t height) {
    chipOf(mState).setFrameBufferResolution(display, width, height);
}

void VelaService::setPanelName(int display, const std::string& name) {
    chipOf(mState).setPanelName(display, name);
}

}  // namespace lmfg
