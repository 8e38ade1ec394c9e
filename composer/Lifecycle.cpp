#include "composer/VelaComposerClient.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/log.h>

#include "servicelib/VelaService.h"
#include "support/Log.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::kLogRegistration;
using lmfg::support::kLogTag;
using lmfg::support::ok;
using lmfg::support::unknownError;

VelaComposerClient::AidlDeathRecipient::AidlDeathRecipient(
        std::weak_ptr<VelaComposerClient> weakOwner)
    : DeathLink(onBinderDied), owner(std::move(weakOwner)) {}

void VelaComposerClient::AidlDeathRecipient::onBinderDied(void* cookie) {
    const auto* record = fromCookie<AidlDeathRecipient>(cookie);
    if (record == nullptr) return;
    if (const auto client = record->owner.lock()) client->handleAidlDeath(record);
}

VelaComposerClient::VelaComposerClient() = default;

// The closures deliberately stay with the library until the next client's replace them, and the
// callback's link ends with its recipient, deliberately without being unlinked.
VelaComposerClient::~VelaComposerClient() = default;

void VelaComposerClient::init(lmfg::VelaService* service) {
    mService = service;
    if (service == nullptr) return;
    // A closure that finds the object gone gives the answer of an object without a callback.
    const std::weak_ptr<VelaComposerClient> weak = ref<VelaComposerClient>();
    service->registerComposerCallback(
            [weak](int64_t display, int config, const std::vector<int>& values) {
                const auto self = weak.lock();
                return self ? self->onConfigChanged(display, config, values) : std::vector<int>();
            },
            [weak](int64_t display) {
                if (const auto self = weak.lock()) self->onRefreshRequested(display);
            },
            [weak](int64_t display, int mode) {
                if (const auto self = weak.lock()) self->onDisplayPowerChanged(display, mode);
            },
            [weak](int64_t display, int value1, int64_t value2) {
                const auto self = weak.lock();
                return self ? self->onContentSamplingRequested(display, value1, value2)
                            : lmfg::VelaContentSamples();
            });
}

ndk::ScopedAStatus VelaComposerClient::registerCallback(
        const std::shared_ptr<IVelaComposerCallback>& callback) {
    if (mService == nullptr) return unknownError();
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Register callback: %p",
                            static_cast<void*>(callback.get()));
    }
    const std::lock_guard lock(mLock);
    // Deliberately no unregistration: an earlier callback stays.
    if (callback == nullptr) return ok();
    unlinkCallback();
    mDeathRecipient.reset();
    mCallback = callback;
    mDeathRecipient.reset(new AidlDeathRecipient(ref<VelaComposerClient>()));
    mDeathRecipient->link(mCallback);
    return ok();
}

void VelaComposerClient::handleAidlDeath(const AidlDeathRecipient* notified) {
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag,
                            "Noticed AIDL death of IVelaComposerCallback");
    }
    const std::lock_guard lock(mLock);
    // Its registration may have let go before the lock was taken; another may be in its place.
    if (notified != nullptr && !notified->isHeld()) return;
    unlinkCallback();
    mCallback.reset();
    mDeathRecipient.reset();
}

void VelaComposerClient::unlinkCallback() {
    if (mDeathRecipient != nullptr) mDeathRecipient->unlink(mCallback);
}

}  // namespace aidl::vendor::lumenforge::hardware::display
