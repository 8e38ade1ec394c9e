#include "service/VelaDefault.h"

#include <cstdint>
#include <vector>

#include <android/binder_auto_utils.h>

#include "servicelib/VelaService.h"
#include "support/Log.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::kLogRegistration;
using lmfg::support::ok;
using lmfg::support::unknownError;

VelaDefault::VelaDefault() : mService(lmfg::VelaService::init()), mLogMask(kLogRegistration) {
    if (mService == nullptr) return;
    // The closures deliberately hold plain `this`: the object is not yet shared. The destructor
    // withdraws them.
    mService->registerVelaCallback(
            [this](int32_t feature, const std::vector<int32_t>& values) {
                onFeatureChanged(feature, values);
            },
            {}, {}, {}, {});
    mService->registerSoftVelaClient(
            [this](int64_t id, int32_t config, const std::vector<int32_t>& values) {
                return onSoftVelaSetConfig(id, config, values);
            },
            [this](int64_t id, int32_t config, const std::vector<int32_t>& values,
                   int32_t& status) {
                std::vector<int32_t> result;
                status = onSoftVelaGetConfig(id, config, values, result);
                return result;
            },
            {});
}

VelaDefault::~VelaDefault() {
    if (mService != nullptr) {
        // Deliberately, this empties what a composer client or a later main service has set, too.
        mService->registerVelaCallback({}, {}, {}, {}, {});
        mService->registerSoftVelaClient({}, {}, {});
    }
    mService = nullptr;
    for (const auto& [id, callback] : mCallbacks)
        unlink(id, callback, mCallbackDeathRecipients);
    mCallbacks.clear();
    mCallbackDeathRecipients.clear();
    for (const auto& [id, client] : mSoftClients)
        unlink(id, client, mSoftClientDeathRecipients);
    mSoftClients.clear();
    mSoftClientDeathRecipients.clear();
}

ndk::ScopedAStatus VelaDefault::initialize(const DisplayConfigVariableInfo& info) {
    if (mService == nullptr) return unknownError();
    mService->initialize(static_cast<uint32_t>(info.value4), static_cast<uint32_t>(info.value1),
                         static_cast<uint32_t>(info.value2));
    mService->initSoftVela();
    for (const auto& batch : mPendingBatches) {
        (void)mService->velaConfigureBatch(kStartupBatch, batch, [](int32_t, const auto&) {});
    }
    mPendingBatches.clear();
    return ok();
}

}  // namespace aidl::vendor::lumenforge::hardware::display
