#include "service/VelaDefault.h"

#include <unistd.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_status.h>

#include "composer/VelaComposerClient.h"
#include "support/Answer.h"
#include "support/Buffer.h"
#include "support/Convert.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::Answer;
using lmfg::support::configureBuffer;
using lmfg::support::copyOut;
using lmfg::support::kLibraryAbsent;
using lmfg::support::kNoClientMade;
using lmfg::support::ok;
using lmfg::support::serviceError;
using lmfg::support::toHidl;
using lmfg::support::unknownError;

ndk::ScopedAStatus VelaDefault::velaConfigureSet(int32_t type, const std::vector<int32_t>& values,
                                                 int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    // Deliberately no error if negative.
    *out = mService->velaConfigureSet(type, toHidl(values));
    return ok();
}

ndk::ScopedAStatus VelaDefault::velaConfigureGet(int32_t type, const std::vector<int32_t>& params,
                                                 std::vector<int32_t>* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    Answer<std::vector<int32_t>> answer;
    (void)mService->velaConfigureGet(type, toHidl(params), answer.receiver());
    return answer.moveTo(out);
}

ndk::ScopedAStatus VelaDefault::velaConfigureBatch(int32_t type, const std::string& request,
                                                   std::string* out) {
    if (mService == nullptr) {
        // Deliberately without a lock, and never replayed in practice: initialize needs a library.
        if (type == kStartupBatch) mPendingBatches.push_back(toHidl(request));
        return serviceError(kLibraryAbsent);
    }
    Answer<std::string> answer;
    (void)mService->velaConfigureBatch(type, toHidl(request), answer.receiver());
    return answer.moveTo(out);
}

ndk::ScopedAStatus VelaDefault::velaConfigureBuffer(int32_t type, int64_t param,
                                                    const ndk::ScopedFileDescriptor& fd,
                                                    int32_t size, int32_t* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    *out = configureBuffer(mService, type, param, fd, size);
    return ok();
}

ndk::ScopedAStatus VelaDefault::panelReadWrite(bool first, int32_t second, int32_t third,
                                               bool fourth, const std::vector<uint8_t>& data,
                                               int32_t sixth, std::vector<uint8_t>* out) {
    if (mService == nullptr) return serviceError(kLibraryAbsent);
    Answer<std::vector<uint8_t>> answer;
    // Deliberately cut to the low eight bits without a check.
    (void)mService->panelReadWrite(first, static_cast<uint8_t>(second), static_cast<uint8_t>(third),
                                   fourth, toHidl(data), static_cast<uint8_t>(sixth),
                                   answer.receiver());
    return answer.moveTo(out);
}

ndk::ScopedAStatus VelaDefault::createComposerClient(std::shared_ptr<IVelaComposerClient>* out) {
    if (mService == nullptr) {
        out->reset();
        return unknownError();
    }
    const auto client = ndk::SharedRefBase::make<VelaComposerClient>();
    if (client == nullptr) {
        out->reset();
        return serviceError(kNoClientMade);
    }
    {
        // The library does not guard its members; two clients must not register at once.
        const std::lock_guard lock(mLock);
        client->init(mService);
    }
    *out = client;
    return ok();
}

binder_status_t VelaDefault::dump(int fd, const char** /*args*/, uint32_t /*argCount*/) {
    std::string text;
    if (mService == nullptr) {
        text = "Vela service library loaded failed";
    } else {
        mService->getDumpString(0, [&text](const auto& delivered) { copyOut(delivered, &text); });
    }
    if (!text.empty()) {
        // Deliberately one attempt: a short or failed write is neither retried nor reported.
        [[maybe_unused]] const ssize_t written = ::write(fd, text.data(), text.size());
    }
    return STATUS_OK;
}

}  // namespace aidl::vendor::lumenforge::hardware::display
