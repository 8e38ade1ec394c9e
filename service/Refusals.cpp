#include "service/VelaDefault.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>

#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::kComposerOnly;
using lmfg::support::kUnanswered;
using lmfg::support::serviceError;

namespace {

ndk::ScopedAStatus refuse() {
    return serviceError(kComposerOnly);
}

template <typename Value>
ndk::ScopedAStatus refuse(Value* out, Value value = {}) {
    *out = std::move(value);
    return refuse();
}

}  // namespace

ndk::ScopedAStatus VelaDefault::buildLayerStack(int64_t, const LayerStack&) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::changeLayerType(int64_t, int64_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::commitLayerStack(int64_t, int32_t, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::configureVelaMaxcll(int32_t, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::createLayer(int64_t, int64_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::destroyLayer(int64_t, int64_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::enableSecondaryDisplay(bool) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::getCurrentConfig(int64_t, VelaFixedConfig* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::getDumpString(int64_t, std::string* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::getLayerToneMappingLut(int64_t, int32_t, LutData* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::getOsdStatus(int32_t, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::handleDisplayEvent(int64_t, int32_t, int32_t, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::present(int64_t, int32_t* out) {
    // Deliberately 1, unlike every other integer.
    return refuse(out, 1);
}

ndk::ScopedAStatus VelaDefault::presentDisplay(int64_t, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::reportDualChannelStatus(int32_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setActiveConfig(int64_t, const DisplayConfigVariableInfo&) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setClientTarget(int64_t, int32_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setColorModeWithRenderIntent(int64_t, int32_t, int32_t,
                                                             int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::setDisplayConnected(int64_t, bool) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerBuffer(int64_t, int64_t, const BufferInfo&) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerCompositionType(int64_t, int64_t, int32_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerDisplayFrame(int64_t, int64_t, const HwcRect&) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerProperty(int64_t, int32_t, int64_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerSetEmpty(int64_t, bool) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerSourceCrop(int64_t, int64_t, const HwcRect&) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerTransform(int64_t, int64_t, int32_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setLayerZOrder(int64_t, int64_t, int32_t) {
    return refuse();
}

ndk::ScopedAStatus VelaDefault::setOsdAutoRefresh(int32_t, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::setPowerMode(int64_t, int32_t, bool, bool, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::updateDisplayBrightness(int64_t, int32_t,
                                                        const std::vector<int32_t>&,
                                                        std::vector<int32_t>* out) {
    return refuse(out, {kUnanswered});
}

ndk::ScopedAStatus VelaDefault::setColorTransform(const std::vector<float>&, int32_t* out) {
    return refuse(out);
}

ndk::ScopedAStatus VelaDefault::configureVelaHdrMode(int32_t) {
    return refuse();
}

}  // namespace aidl::vendor::lumenforge::hardware::display
