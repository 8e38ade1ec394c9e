#include <functional>

#include <android/binder_ibinder.h>
#include <android/binder_stability.h>

#include "base/Log.h"
#include "objects/DeathLinks.h"
#include "objects/Object.h"

namespace {

using binder::DeathLinks;
using binder::LocalObject;
using binder::Stability;

void mark(AIBinder* binder, Stability stability) {
    if (binder == nullptr) return;
    if (binder->isRemote() || binder->offerStability(stability) != stability) {
        binder::log(ANDROID_LOG_ERROR, "The stability of a binder cannot be changed");
    }
}

}  // namespace

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    if (clazz != nullptr) clazz->onDump = onDump;
}

void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand) {
    if (clazz != nullptr) clazz->onShellCommand = handleShellCommand;
}

void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz) {
    if (clazz != nullptr) clazz->hasTokenHeader = false;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz == nullptr ? nullptr : clazz->descriptor.c_str();
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) {
        binder::log(ANDROID_LOG_ERROR, "A local binder needs a class");
        return nullptr;
    }
    return new LocalObject(clazz, args);
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->isRemote();
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    const DeathLinks* const links = const_cast<AIBinder*>(binder)->deathLinks();
    return links == nullptr || !links->isDead();
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->clazz();
}

void* AIBinder_getUserData(AIBinder* binder) {
    const LocalObject* const local = binder::localOf(binder);
    return local == nullptr ? nullptr : local->userData();
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->incStrong();
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr) binder->decStrong();
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder == nullptr ? -1 : binder->strongCount();
}

bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) {
    return std::less<const AIBinder*>()(lhs, rhs);
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    binder->incWeak();
    return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return;
    weakBinder->binder->decWeak();
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr || !weakBinder->binder->tryIncStrong()) return nullptr;
    return weakBinder->binder;
}

AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) {
    return weak == nullptr ? nullptr : AIBinder_Weak_new(weak->binder);
}

bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) {
    return AIBinder_lt(lhs == nullptr ? nullptr : lhs->binder,
                       rhs == nullptr ? nullptr : rhs->binder);
}

void AIBinder_markVintfStability(AIBinder* binder) {
    mark(binder, Stability::kVintf);
}

void AIBinder_markCompilationUnitStability(AIBinder* binder) {
    mark(binder, binder::kOwnStability);
}

void AIBinder_markVendorStability(AIBinder* binder) {
    mark(binder, Stability::kVendor);
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    if (onBinderDied == nullptr) return nullptr;
    return new AIBinder_DeathRecipient{std::make_shared<binder::Recipient>(onBinderDied)};
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    if (recipient != nullptr) recipient->recipient->onUnlinked = onUnlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient != nullptr) recipient->recipient->clear();
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (DeathLinks* const links = binder->deathLinks(); links != nullptr) {
        return links->link(recipient->recipient, cookie);
    }
    // The function runs once for every link that was asked for, also where none can be.
    const auto onUnlinked = recipient->recipient->onUnlinked.load();
    if (onUnlinked != nullptr) onUnlinked(cookie);
    return STATUS_INVALID_OPERATION;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    DeathLinks* const links = binder->deathLinks();
    return links == nullptr ? STATUS_NAME_NOT_FOUND : links->unlink(*recipient->recipient, cookie);
}
