#include "Object.h"

#include <utility>

#include <android/log.h>

#include "Death.h"
#include "Log.h"
#include "Peer.h"
#include "ThreadPool.h"

namespace {

// One-way calls that wait for one object; beyond it their connection is not read.
constexpr size_t kMaxAsyncBytes = 1024 * 1024;

/** What the call takes while it waits: one without data is not free. */
size_t sizeOf(const binder::AsyncCall& call) {
    return sizeof(AParcel) + call.in->dataSize();
}

}  // namespace

void AIBinder::incStrong() {
    mStrong.fetch_add(1, std::memory_order_relaxed);
}

bool AIBinder::tryIncStrong() {
    int32_t count = mStrong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mStrong.compare_exchange_weak(count, count + 1, std::memory_order_acquire)) return true;
    }
    return false;
}

void AIBinder::decStrong() {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    onLastStrong();
    decWeak();
}

void AIBinder::incWeak() {
    mWeak.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder::decWeak() {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

bool AIBinder::associateClass(const AIBinder_Class* clazz) {
    if (clazz == nullptr) return false;
    const AIBinder_Class* current = nullptr;
    if (this->clazz() == nullptr && descriptor() != clazz->descriptor) {
        binder::log(ANDROID_LOG_ERROR, "Expecting binder to have class '%s' but descriptor is '%s'",
                    clazz->descriptor.c_str(), descriptor().c_str());
        return false;
    }
    if (mClass.compare_exchange_strong(current, clazz) || current == clazz) return true;
    binder::log(ANDROID_LOG_ERROR, "Cannot associate class '%s' (%p): binder has class '%s' (%p)",
                clazz->descriptor.c_str(), static_cast<const void*>(clazz),
                current->descriptor.c_str(), static_cast<const void*>(current));
    return false;
}

namespace binder {

LocalObject::LocalObject(const AIBinder_Class* clazz, void* args)
    : AIBinder(clazz, false), mUserData(clazz->onCreate(args)) {}

void LocalObject::onLastStrong() {
    clazz()->onDestroy(mUserData);
}

bool LocalObject::queueAsync(AsyncCall call, const std::shared_ptr<Connection>& connection,
                             bool* parked) {
    const std::lock_guard lock(mAsyncLock);
    mAsyncBytes += sizeOf(call);
    mAsyncCalls.push_back(std::move(call));
    *parked = mAsyncBytes > kMaxAsyncBytes;
    if (*parked) mParked.push_back(connection);
    return !std::exchange(mAsyncServed, true);
}

bool LocalObject::nextAsync(AsyncCall* call) {
    call->in.reset();  // may run destructors of others, which is not for under the lock
    std::vector<std::shared_ptr<Connection>> unparked;
    bool found = false;
    {
        const std::lock_guard lock(mAsyncLock);
        found = !mAsyncCalls.empty();
        mAsyncServed = found;
        if (found) {
            *call = std::move(mAsyncCalls.front());
            mAsyncCalls.pop_front();
            mAsyncBytes -= sizeOf(*call);
        }
        if (mAsyncBytes <= kMaxAsyncBytes) unparked.swap(mParked);
    }
    for (const std::shared_ptr<Connection>& connection : unparked) {
        ThreadPool::get().rearm(*connection);
    }
    return found;
}

ProxyObject::ProxyObject(std::shared_ptr<Peer> peer, uint64_t id, std::string descriptor, bool dead)
    : AIBinder(nullptr, true),
      mPeer(std::move(peer)),
      mId(id),
      mDescriptor(std::move(descriptor)),
      mDead(dead) {}

void ProxyObject::onLastStrong() {
    mPeer->proxyReleased(*this);
    DeathNotifier::get().forget(*this);
}

}  // namespace binder

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    return new AIBinder_Class{.descriptor = interfaceDescriptor,
                              .onCreate = onCreate,
                              .onDestroy = onDestroy,
                              .onTransact = onTransact};
}

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
    return new binder::LocalObject(clazz, args);
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->isRemote();
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    binder::ProxyObject* const proxy = const_cast<AIBinder*>(binder)->asProxy();
    return proxy == nullptr || !proxy->isDead();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    return binder != nullptr && binder->associateClass(clazz);
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->clazz();
}

void* AIBinder_getUserData(AIBinder* binder) {
    binder::LocalObject* const local = binder == nullptr ? nullptr : binder->asLocal();
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
