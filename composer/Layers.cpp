#include "composer/VelaComposerClient.h"

#include <cstdint>

#include <android/binder_auto_utils.h>
#include <hardware/hwcomposer_defs.h>

#include "support/Status.h"
#include "translate/AidlToHidl.h"

// What an operation answers without a library differs from one to the next, and which of its
// arguments reach the library does too. Both are deliberate throughout.

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::kLibraryAbsent;
using lmfg::support::ok;
using lmfg::support::serviceError;
using lmfg::support::unknownError;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

namespace {

hwc_rect toHwcRect(const HwcRect& rect) {
    return {.left = rect.left, .top = rect.top, .right = rect.right, .bottom = rect.bottom};
}

}  // namespace

ndk::ScopedAStatus VelaComposerClient::buildLayerStack(int64_t display, const LayerStack& stack) {
    if (mService == nullptr) return unknownError();
    V1_1::LayerStack record;
    (void)lmfg::a2h::translate(stack, &record);
    mService->buildLayerStack(static_cast<int>(display), record);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::changeLayerType(int64_t layer, int64_t type) {
    if (mService == nullptr) return unknownError();
    mService->ChangeLayerType(static_cast<uint64_t>(layer), static_cast<int>(type));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::commitLayerStack(int64_t display, int32_t flags,
                                                        int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = mService->CommitLayerStack(static_cast<int>(display), flags != 0);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::createLayer(int64_t display, int64_t layer) {
    if (mService == nullptr) return unknownError();
    // The swap is deliberate.
    mService->CreateLayer(static_cast<uint64_t>(layer), static_cast<int>(display));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::destroyLayer(int64_t /*display*/, int64_t layer) {
    if (mService == nullptr) return unknownError();
    mService->DestroyLayer(static_cast<uint64_t>(layer));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerBuffer(int64_t display, int64_t layer,
                                                      const BufferInfo& buffer) {
    if (mService == nullptr) return unknownError();
    V1_1::BufferInfo record;
    (void)lmfg::a2h::translate(buffer, &record);
    mService->setLayerBuffer(static_cast<uint64_t>(display), static_cast<uint64_t>(layer), record);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerCompositionType(int64_t /*display*/, int64_t layer,
                                                               int32_t type) {
    if (mService == nullptr) return unknownError();
    mService->SetLayerCompositionType(static_cast<uint64_t>(layer), type);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerDisplayFrame(int64_t /*display*/, int64_t layer,
                                                            const HwcRect& frame) {
    if (mService == nullptr) return unknownError();
    mService->SetLayerDisplayFrame(static_cast<uint64_t>(layer), toHwcRect(frame));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerProperty(int64_t /*display*/, int32_t property,
                                                        int64_t value) {
    if (mService == nullptr) return unknownError();
    mService->setLayerProperty(static_cast<uint32_t>(property), static_cast<uint64_t>(value));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerSetEmpty(int64_t display, bool empty) {
    if (mService == nullptr) return unknownError();
    mService->SetLayerSetEmpty(static_cast<int>(display), empty);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerSourceCrop(int64_t /*display*/, int64_t layer,
                                                          const HwcRect& crop) {
    if (mService == nullptr) return unknownError();
    mService->SetLayerSourceCrop(static_cast<uint64_t>(layer), toHwcRect(crop));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerTransform(int64_t /*display*/, int64_t layer,
                                                         int32_t transform) {
    if (mService == nullptr) return unknownError();
    mService->SetLayerTransform(static_cast<uint64_t>(layer), transform);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setLayerZOrder(int64_t /*display*/, int64_t layer,
                                                      int32_t z) {
    if (mService == nullptr) return unknownError();
    mService->SetLayerZOrder(static_cast<uint64_t>(layer), static_cast<uint32_t>(z));
    return ok();
}

}  // namespace aidl::vendor::lumenforge::hardware::display
