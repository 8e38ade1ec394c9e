#include "service/VelaDefault.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/log.h>

#include "support/Log.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using lmfg::support::kLogRegistration;
using lmfg::support::kLogTag;
using lmfg::support::ok;
using lmfg::support::unknownError;

namespace {

constexpr int32_t kCallbackKind = 1;
constexpr int32_t kSoftClientKind = 2;

/** What the log's %lx takes. */
unsigned long toUnsignedLong(int64_t id) {
    return static_cast<unsigned long>(id);
}

/** Who is registered under the identifier; null if nobody is. */
template <typename Clients>
typename Clients::mapped_type registered(int64_t id, const Clients& clients) {
    const auto found = clients.find(id);
    return found == clients.end() ? nullptr : found->second;
}

}  // namespace

VelaDefault::AidlDeathRecipient::AidlDeathRecipient(std::weak_ptr<VelaDefault> weakOwner,
                                                    int32_t clientKind, int64_t clientId)
    : DeathLink(onBinderDied), owner(std::move(weakOwner)), kind(clientKind), id(clientId) {}

void VelaDefault::AidlDeathRecipient::onBinderDied(void* cookie) {
    const auto* record = fromCookie<AidlDeathRecipient>(cookie);
    if (record == nullptr) return;
    if (const auto service = record->owner.lock()) {
        service->handleAidlDeath(record->kind, record->id, record);
    }
}

void VelaDefault::unlink(int64_t id, const std::shared_ptr<ndk::ICInterface>& client,
                         const DeathRecipients& recipients) {
    if (const auto found = recipients.find(id); found != recipients.end()) {
        found->second->unlink(client);
    }
}

template <typename Client>
void VelaDefault::replace(int32_t kind, int64_t id, const std::shared_ptr<Client>& client,
                          Clients<Client>& clients, DeathRecipients& recipients) {
    if (client == nullptr) return forget(id, clients, recipients);
    unlink(id, registered(id, clients), recipients);
    clients[id] = client;
    auto& record = recipients[id];
    record.reset(new AidlDeathRecipient(ref<VelaDefault>(), kind, id));
    record->link(client);
}

template <typename Client>
void VelaDefault::forget(int64_t id, Clients<Client>& clients, DeathRecipients& recipients) {
    unlink(id, registered(id, clients), recipients);
    clients.erase(id);
    recipients.erase(id);
}

ndk::ScopedAStatus VelaDefault::registerCallback(int64_t id,
                                                 const std::shared_ptr<IVelaCallback>& callback) {
    if (mService == nullptr) return unknownError();
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Register callback: 0x%lx,%p",
                            toUnsignedLong(id), static_cast<void*>(callback.get()));
    }
    const std::lock_guard lock(mLock);
    replace(kCallbackKind, id, callback, mCallbacks, mCallbackDeathRecipients);
    return ok();
}

ndk::ScopedAStatus VelaDefault::registerSoftVelaClient(
        int64_t id, const std::shared_ptr<ISoftVelaClient>& client) {
    if (mService == nullptr) return unknownError();
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Register soft vela client: 0x%lx,%p",
                            toUnsignedLong(id), static_cast<void*>(client.get()));
    }
    const std::lock_guard lock(mLock);
    replace(kSoftClientKind, id, client, mSoftClients, mSoftClientDeathRecipients);
    return ok();
}

void VelaDefault::handleAidlDeath(int32_t kind, int64_t id, const AidlDeathRecipient* notified) {
    if (kind != kCallbackKind && kind != kSoftClientKind) return;
    const bool isCallback = kind == kCallbackKind;
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Noticed AIDL death of %s 0x%lx",
                            isCallback ? "IVelaCallback" : "ISoftVelaClient", toUnsignedLong(id));
    }
    const std::lock_guard lock(mLock);
    // Its registration may have let go before the lock was taken; another may be in its place.
    if (notified != nullptr && !notified->isHeld()) return;
    if (isCallback) {
        forget(id, mCallbacks, mCallbackDeathRecipients);
    } else {
        forget(id, mSoftClients, mSoftClientDeathRecipients);
    }
}

}  // namespace aidl::vendor::lumenforge::hardware::display
