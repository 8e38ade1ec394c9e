#include "composer/VelaComposerClient.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <hidl/HidlSupport.h>

#include "support/Answer.h"
#include "support/Convert.h"
#include "support/Status.h"
#include "translate/HidlToAidl.h"

namespace aidl::vendor::lumenforge::hardware::display {

using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using lmfg::support::Answer;
using lmfg::support::copyOut;
using lmfg::support::fromLibrary;
using lmfg::support::kLibraryAbsent;
using lmfg::support::ok;
using lmfg::support::serviceError;
using lmfg::support::toHidl;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

namespace {

// The translators append to what they find, so the caller's record is replaced by a fresh one.
template <typename Record, typename Out>
ndk::ScopedAStatus translateAnswer(const Answer<Record>& answer, Out* out) {
    ndk::ScopedAStatus status = fromLibrary(answer.status());
    if (!status.isOk()) return status;
    Out fresh;
    (void)lmfg::h2a::translate(answer.value(), &fresh);
    *out = std::move(fresh);
    return status;
}

}  // namespace

ndk::ScopedAStatus VelaComposerClient::getCurrentConfig(int64_t /*display*/, VelaFixedConfig* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    Answer<V1_1::VelaFixedConfig> answer;
    mService->getCurrentConfig(answer.receiver());
    return translateAnswer(answer, out);
}

ndk::ScopedAStatus VelaComposerClient::getDumpString(int64_t display, std::string* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    std::string dump;
    mService->getDumpString(static_cast<uint64_t>(display),
                            [&dump](const hidl_string& delivered) { copyOut(delivered, &dump); });
    *out = std::move(dump);
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::getLayerToneMappingLut(int64_t layer, int32_t table,
                                                              LutData* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    Answer<V1_1::LutData> answer;
    mService->getLayerToneMappingLut(static_cast<uint64_t>(layer), static_cast<uint32_t>(table),
                                     answer.receiver());
    return translateAnswer(answer, out);
}

ndk::ScopedAStatus VelaComposerClient::getOsdStatus(int32_t which, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    constexpr int32_t kState = 0;
    constexpr int32_t kOverFlow = 1;
    switch (which) {
        case kState:
            *out = mService->GetOsdState();
            break;
        case kOverFlow:
            *out = mService->GetOsdOverFlow();
            break;
        default:
            // Deliberately no error; the library is not asked.
            *out = 0;
    }
    return ok();
}

ndk::ScopedAStatus VelaComposerClient::updateDisplayBrightness(int64_t display, int32_t brightness,
                                                               const std::vector<int32_t>& values,
                                                               std::vector<int32_t>* out) {
    // Deliberately never an error: the result carries the status.
    if (mService == nullptr) {
        out->assign(1, kLibraryAbsent);
        return ok();
    }
    std::vector<int32_t> collected;
    mService->updateDisplayBrightness(
            static_cast<uint64_t>(display), brightness, toHidl(values),
            [&collected](int32_t status, const hidl_vec<int32_t>& delivered) {
                collected.push_back(status);
                collected.insert(collected.end(), delivered.data(),
                                 delivered.data() + delivered.size());
            });
    *out = std::move(collected);
    return ok();
}

}  // namespace aidl::vendor::lumenforge::hardware::display
