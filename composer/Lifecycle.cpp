#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/log.h>

#include "composer/VelaComposerClient.h"
#include "support/DeathLink.h"
#include "support/Log.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

// The death link of the registered callback; its address is the link's cookie.
//
// A compositor's death brings two things at once on two threads: the notification, and the end of
// the client object whose last owner the compositor was. The object deletes its recipient without
// unlinking, so a notification under way may come too late: it finds either no record or an owner
// that is gone, and does nothing.
struct VelaComposerClient::AidlDeathRecipient {
    explicit AidlDeathRecipient(std::weak_ptr<VelaComposerClient> client)
        : owner(std::move(client)), recipient(AIBinder_DeathRecipient_new(onBinderDied)) {}

    static void onBinderDied(void* cookie) {
        std::weak_ptr<VelaComposerClient> owner;
        lmfg::support::LiveRecord::read<AidlDeathRecipient>(
                cookie, [&owner](const AidlDeathRecipient& record) { owner = record.owner; });
        if (const auto client = owner.lock()) client->handleAidlDeath();
    }

    const std::weak_ptr<VelaComposerClient> owner;
    const ndk::ScopedAIBinder_DeathRecipient recipient;
    const lmfg::support::LiveRecord live{this};
};

VelaComposerClient::VelaComposerClient() = default;

// The closures deliberately stay with the library: the next client's registration replaces them,
// and withdrawing them here would take away that client's.
VelaComposerClient::~VelaComposerClient() = default;

void VelaComposerClient::init(lmfg::VelaService* service) {
    mService = service;
    if (service == nullptr) return;
    // A closure that finds the object gone answers as the object does without a callback.
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
    if (mService == nullptr) return lmfg::support::unknownError();
    if (mLogMask & lmfg::support::kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, lmfg::support::kLogTag, "Register callback: %p",
                            static_cast<void*>(callback.get()));
    }
    const std::lock_guard lock(mLock);
    // Deliberately no unregistration: a compositor keeps its callback until it dies.
    if (!callback) return lmfg::support::ok();
    unlinkCallback();
    mCallback = callback;
    // The old record goes only now: a late notification of it must not find the new one in its
    // place.
    mDeathRecipient = std::make_unique<AidlDeathRecipient>(ref<VelaComposerClient>());
    lmfg::support::linkToDeath(mCallback, mDeathRecipient->recipient.get(), mDeathRecipient.get());
    return lmfg::support::ok();
}

void VelaComposerClient::handleAidlDeath() {
    if (mLogMask & lmfg::support::kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, lmfg::support::kLogTag,
                            "Noticed AIDL death of IVelaComposerCallback");
    }
    const std::lock_guard lock(mLock);
    unlinkCallback();
    mCallback.reset();
    mDeathRecipient.reset();
}

void VelaComposerClient::unlinkCallback() {
    if (mCallback && mDeathRecipient) {
        lmfg::support::unlinkToDeath(mCallback, mDeathRecipient->recipient.get(),
                                     mDeathRecipient.get());
    }
}

}  // namespace aidl::vendor::lumenforge::hardware::display
