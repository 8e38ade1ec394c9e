#include "composer/VelaComposerClient.h"

#include <cstdint>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>

#include "support/Answer.h"
#include "support/Buffer.h"
#include "support/Convert.h"
#include "support/Status.h"

// Any type is passed on, named by the interface or not.

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::Answer;
using lmfg::support::fromLibrary;
using lmfg::support::kLibraryAbsent;
using lmfg::support::serviceError;
using lmfg::support::toHidl;

ndk::ScopedAStatus VelaComposerClient::configureValues(VendorConfig type,
                                                       const std::vector<int32_t>& values,
                                                       std::vector<int32_t>* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    if (values.empty()) {
        Answer<std::vector<int32_t>> answer;
        (void)mService->velaConfigureGet(static_cast<int>(type), {}, answer.receiver());
        return answer.moveTo(out);
    }
    // Deliberately unlike the main service's: a negative code is an error here.
    const int32_t code = mService->velaConfigureSet(static_cast<int>(type), toHidl(values));
    ndk::ScopedAStatus status = fromLibrary(code);
    if (status.isOk()) out->assign(1, code);
    return status;
}

ndk::ScopedAStatus VelaComposerClient::configureBatch(VendorConfig type, const std::string& request,
                                                      std::string* out) {
    // Deliberately not kept for later, unlike the main service's.
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    Answer<std::string> answer;
    (void)mService->velaConfigureBatch(static_cast<int>(type), toHidl(request), answer.receiver());
    return answer.moveTo(out);
}

ndk::ScopedAStatus VelaComposerClient::configureBuffer(VendorConfig type, int64_t param,
                                                       const ndk::ScopedFileDescriptor& fd,
                                                       int32_t size) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    return fromLibrary(
            lmfg::support::configureBuffer(mService, static_cast<int32_t>(type), param, fd, size));
}

}  // namespace aidl::vendor::lumenforge::hardware::display
