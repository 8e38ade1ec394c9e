#include "service/VelaDefault.h"

#include <utility>

#include "support/Log.h"
#include "support/Status.h"

namespace aidl::vendor::lumenforge::hardware::display {

using namespace lmfg::support;

namespace {

constexpr int32_t kCallbackKind = 1;
constexpr int32_t kSoftClientKind = 2;

/** What the log prints with %lx. */
unsigned long hex(int64_t id) {
    return static_cast<unsigned long>(id);
}

}  // namespace

VelaDefault::AidlDeathRecipient::AidlDeathRecipient(std::weak_ptr<VelaDefault> weakOwner,
                                                    int32_t clientKind, int64_t clientId)
    : owner(std::move(weakOwner)),
      recipient(AIBinder_DeathRecipient_new(onBinderDied)),
      kind(clientKind),
      id(clientId),
      live(this) {}

void VelaDefault::AidlDeathRecipient::onBinderDied(void* cookie) {
    // Everything is copied first: handling the death destroys the record.
    std::shared_ptr<VelaDefault> owner;
    int32_t kind = 0;
    int64_t id = 0;
    LiveRecord::read<AidlDeathRecipient>(cookie, [&](const AidlDeathRecipient& record) {
        owner = record.owner.lock();
        kind = record.kind;
        id = record.id;
    });
    if (owner != nullptr) owner->handleAidlDeath(kind, id);
}

void VelaDefault::unlink(const std::shared_ptr<ndk::ICInterface>& client, int64_t id,
                         const DeathRecipients& recipients) {
    const auto found = recipients.find(id);
    if (found == recipients.end()) return;
    AidlDeathRecipient* record = found->second.get();
    unlinkToDeath(client, record->recipient.get(), record);
}

template <typename Client>
void VelaDefault::replace(int32_t kind, int64_t id, const std::shared_ptr<Client>& client,
                          Clients<Client>& clients, DeathRecipients& recipients) {
    if (const auto previous = clients.find(id); previous != clients.end()) {
        unlink(previous->second, id, recipients);
    }
    if (client == nullptr) {
        clients.erase(id);
        recipients.erase(id);
        return;
    }
    clients[id] = client;
    // Made before the previous record goes: a late notification of that one must not find this one
    // at its address.
    auto made = std::make_unique<AidlDeathRecipient>(ref<VelaDefault>(), kind, id);
    auto& record = recipients[id];
    record = std::move(made);
    linkToDeath(client, record->recipient.get(), record.get());
}

ndk::ScopedAStatus VelaDefault::registerCallback(int64_t id,
                                                 const std::shared_ptr<IVelaCallback>& callback) {
    if (mService == nullptr) return unknownError();
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Register callback: 0x%lx,%p", hex(id),
                            static_cast<void*>(callback.get()));
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
                            hex(id), static_cast<void*>(client.get()));
    }
    const std::lock_guard lock(mLock);
    replace(kSoftClientKind, id, client, mSoftClients, mSoftClientDeathRecipients);
    return ok();
}

void VelaDefault::handleAidlDeath(int32_t kind, int64_t id) {
    if (kind != kCallbackKind && kind != kSoftClientKind) return;
    const bool isCallback = kind == kCallbackKind;
    if (mLogMask & kLogRegistration) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Noticed AIDL death of %s 0x%lx",
                            isCallback ? "IVelaCallback" : "ISoftVelaClient", hex(id));
    }
    const std::lock_guard lock(mLock);
    if (isCallback) {
        replace<IVelaCallback>(kind, id, nullptr, mCallbacks, mCallbackDeathRecipients);
    } else {
        replace<ISoftVelaClient>(kind, id, nullptr, mSoftClients, mSoftClientDeathRecipients);
    }
}

}  // namespace aidl::vendor::lumenforge::hardware::display
