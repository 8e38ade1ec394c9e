#include <cstdint>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>

#include "composer/VelaComposerClient.h"
#include "support/Answer.h"
#include "support/Buffer.h"
#include "support/Convert.h"
#include "support/Status.h"

// Any type is passed on, named by the interface or not: only the library knows which there are.

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::Answer;
using lmfg::support::fromLibrary;
using lmfg::support::kLibraryAbsent;
using lmfg::support::serviceError;
using lmfg::support::toHidl;

ndk::ScopedAStatus VelaComposerClient::configureValues(VendorConfig type,
                                                       const std::vector<int32_t>& values,
                                                       std::vector<int32_t>* result) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    if (values.empty()) {
        Answer<std::vector<int32_t>> answer;
        mService->velaConfigureGet(static_cast<int>(type), {}, answer.receiver());
        return answer.moveTo(result);
    }
    // Deliberately unlike the main service's: a compositor sees the library's refusal as an error.
    const int32_t status = mService->velaConfigureSet(static_cast<int>(type), toHidl(values));
    if (status >= 0) result->assign(1, status);
    return fromLibrary(status);
}

ndk::ScopedAStatus VelaComposerClient::configureBatch(VendorConfig type, const std::string& request,
                                                      std::string* reply) {
    // Deliberately not kept for later, as the main service keeps some: a compositor asks again.
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    Answer<std::string> answer;
    mService->velaConfigureBatch(static_cast<int>(type), toHidl(request), answer.receiver());
    return answer.moveTo(reply);
}

ndk::ScopedAStatus VelaComposerClient::configureBuffer(VendorConfig type, int64_t param,
                                                       const ndk::ScopedFileDescriptor& fd,
                                                       int32_t size) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    return fromLibrary(
            lmfg::support::configureBuffer(mService, static_cast<int32_t>(type), param, fd, size));
}

}  // namespace aidl::vendor::lumenforge::hardware::display
