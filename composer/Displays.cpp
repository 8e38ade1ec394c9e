#include "composer/VelaComposerClient.h"

#include <cstdint>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>

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

constexpr int64_t kPrimaryDisplay = 0;
constexpr int64_t kPluggableDisplay = 1;
constexpr int64_t kVirtualDisplay = 2;
constexpr int64_t kSecondPresentDisplay = 3;

}  // namespace

ndk::ScopedAStatus VelaComposerClient::configureVelaMaxcll(int32_t value, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = mService->configureVelaMaxcll(value);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::enableSecondaryDisplay(bool enable) {
    if (mService == nullptr) return unknownError();
    // Deliberately on only: a composer client never switches the display off.
    if (enable) mService->enableSecondaryDisplay(true);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::handleDisplayEvent(int64_t display, int32_t event,
                                                          int32_t value, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = mService->handleDisplayEvent(static_cast<uint64_t>(display), event, value);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::present(int64_t display, int32_t* out) {
    if (mService == nullptr) {
        // Deliberately no error.
        *out = 1;
        return ok();
    }
    const bool presented =
            display == kSecondPresentDisplay ? mService->Present2nd() : mService->Present();
    *out = presented ? 1 : 0;
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::presentDisplay(int64_t display, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    // Deliberately success, without asking the library, for any other display.
    *out = display == kPrimaryDisplay ? mService->PresentDisplay() : 0;
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::reportDualChannelStatus(int32_t status) {
    if (mService == nullptr) return unknownError();
    mService->reportDualChannelStatus(status);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setActiveConfig(int64_t /*display*/,
                                                       const DisplayConfigVariableInfo& config) {
    if (mService == nullptr) return unknownError();
    V1_1::DisplayConfigVariableInfo record;
    (void)lmfg::a2h::translate(config, &record);
    mService->setActiveConfig(record);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setClientTarget(int64_t /*display*/, int32_t target) {
    if (mService == nullptr) return unknownError();
    mService->SetClientTarget(target);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setColorModeWithRenderIntent(int64_t /*display*/,
                                                                    int32_t mode, int32_t intent,
                                                                    int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = mService->SetColorModeWithRenderIntent(mode, intent);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setDisplayConnected(int64_t display, bool connected) {
    if (mService == nullptr) return unknownError();
    // Deliberately no error, and nothing to tell the library, for any other display.
    if (display == kPluggableDisplay) mService->SetPluggableDisplayConnected(connected);
    if (display == kVirtualDisplay) mService->SetVirtualDisplayConnected(connected);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setOsdAutoRefresh(int32_t enable, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = mService->setOsdAutoRefresh(enable);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setPowerMode(int64_t /*display*/, int32_t mode,
                                                    bool /*first*/, bool second, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    // The second flag travels as a bit of the mode; the first is deliberately dropped.
    constexpr int kSecondFlag = 0x100;
    mService->SetPowerMode(second ? mode | kSecondFlag : mode);
    *out = 0;
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setColorTransform(const std::vector<float>& matrix,
                                                         int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = mService->SetColorTransform(matrix);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::configureVelaHdrMode(int32_t /*mode*/) {
    // Deliberately never forwarded.
    return unknownError();
}

ndk::ScopedAStatus VelaComposerClient::setFrameBufferResolution(int64_t display, int32_t width,
                                                                int32_t height) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    mService->setFrameBufferResolution(static_cast<int>(display), static_cast<uint32_t>(width),
                                       static_cast<uint32_t>(height));
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::setPanelName(int64_t display, const std::string& name) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    mService->setPanelName(static_cast<int>(display), name);
    return ok();
}

}  // namespace aidl::vendor::lumenforge::hardware::display
