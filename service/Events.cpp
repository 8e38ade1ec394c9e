#include "service/VelaDefault.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/log.h>

#include "support/Log.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::kLogTag;
using lmfg::support::kLogTrace;
using lmfg::support::kUnanswered;

namespace {

void trace(uint32_t mask, const void* client, const char* what) {
    if (mask & kLogTrace) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "[%p]%s", client, what);
    }
}

}  // namespace

void VelaDefault::onFeatureChanged(int32_t feature, const std::vector<int32_t>& values) {
    std::vector<std::shared_ptr<IVelaCallback>> callbacks;
    {
        const std::lock_guard lock(mLock);
        callbacks.reserve(mCallbacks.size());
        for (const auto& [id, callback] : mCallbacks) {
            if (callback != nullptr) callbacks.push_back(callback);
        }
    }
    for (const auto& callback : callbacks) {
        trace(mLogMask, callback.get(), "onFeatureChanged");
        // A callback that fails stops no other; its death notification removes it.
        (void)callback->onFeatureChanged(feature, values);
        trace(mLogMask, callback.get(), "onFeatureChanged - end");
    }
}

int32_t VelaDefault::onSoftVelaSetConfig(int64_t id, int32_t config,
                                         const std::vector<int32_t>& values) {
    const std::shared_ptr<ISoftVelaClient> client = firstSoftClient();
    if (client == nullptr) return kUnanswered;
    int32_t result = kUnanswered;
    trace(mLogMask, client.get(), "setConfig");
    // Deliberately unexamined: a failed call leaves -1, or what the reply held.
    (void)client->setConfig(id, config, values, &result);
    trace(mLogMask, client.get(), "setConfig - end");
    return result;
}

int32_t VelaDefault::onSoftVelaGetConfig(int64_t id, int32_t config,
                                         const std::vector<int32_t>& values,
                                         std::vector<int32_t>& out) {
    const std::shared_ptr<ISoftVelaClient> client = firstSoftClient();
    if (client == nullptr) return kUnanswered;
    trace(mLogMask, client.get(), "getConfig");
    const ndk::ScopedAStatus status = client->getConfig(id, config, values, &out);
    // Deliberately 0 for a failure that is not service-specific, a dead client's for one.
    const int32_t result = status.isOk() ? 0 : status.getServiceSpecificError();
    trace(mLogMask, client.get(), "getConfig - end");
    return result;
}

std::shared_ptr<ISoftVelaClient> VelaDefault::firstSoftClient() {
    // The identifier that the library names deliberately selects nothing; it is only passed on.
    const std::lock_guard lock(mLock);
    for (const auto& [id, client] : mSoftClients) {
        if (client != nullptr) return client;
    }
    return nullptr;
}

}  // namespace aidl::vendor::lumenforge::hardware::display
