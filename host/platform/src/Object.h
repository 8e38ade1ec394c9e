#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>
#include <android/binder_shell.h>

#include "Parcel.h"

namespace binder {

class Connection;
class LocalObject;
class Peer;
class ProxyObject;
struct DeathLink;

}  // namespace binder

struct AIBinder_Class {
    std::string descriptor;
    AIBinder_Class_onCreate onCreate;
    AIBinder_Class_onDestroy onDestroy;
    AIBinder_Class_onTransact onTransact;
    AIBinder_onDump onDump = nullptr;
    AIBinder_handleShellCommand onShellCommand = nullptr;
    bool hasTokenHeader = true;
};

/**
 * Counts: the object lives while strong references do; its memory, and with it its place in the
 * order of objects, while weak ones do. All strong references together hold one weak one.
 */
struct AIBinder {
  public:
    AIBinder(const AIBinder&) = delete;
    AIBinder& operator=(const AIBinder&) = delete;

    void incStrong();
    /** False when the last strong reference is gone. */
    bool tryIncStrong();
    void decStrong();
    int32_t strongCount() const { return mStrong.load(std::memory_order_relaxed); }
    void incWeak();
    void decWeak();

    virtual binder::LocalObject* asLocal() { return nullptr; }
    virtual binder::ProxyObject* asProxy() { return nullptr; }
    bool isRemote() const { return mIsRemote; }

    const AIBinder_Class* clazz() const { return mClass.load(std::memory_order_acquire); }
    bool associateClass(const AIBinder_Class* clazz);

    virtual const std::string& descriptor() const = 0;

  protected:
    AIBinder(const AIBinder_Class* clazz, bool isRemote) : mClass(clazz), mIsRemote(isRemote) {}
    virtual ~AIBinder() = default;
    /** The last strong reference is gone; runs on the thread that dropped it. */
    virtual void onLastStrong() = 0;

  private:
    std::atomic<const AIBinder_Class*> mClass;
    const bool mIsRemote;
    std::atomic<int32_t> mStrong{1};
    std::atomic<int32_t> mWeak{1};
};

struct AIBinder_Weak {
    AIBinder* binder;  // one weak reference
};

namespace binder {

/** Owns one strong reference. */
struct BinderRelease {
    void operator()(AIBinder* binder) const { binder->decStrong(); }
};
using StrongBinder = std::unique_ptr<AIBinder, BinderRelease>;

/** Owns one weak reference. */
struct WeakBinderRelease {
    void operator()(AIBinder* binder) const { binder->decWeak(); }
};
using WeakBinder = std::unique_ptr<AIBinder, WeakBinderRelease>;

inline StrongBinder share(AIBinder* binder) {
    binder->incStrong();
    return StrongBinder(binder);
}

/** A one-way call that waits for its turn. */
struct AsyncCall {
    std::unique_ptr<AParcel> in;
    transaction_code_t code;
    binder_flags_t flags;
    uid_t callerUid;
};

/** An object that this process serves. */
class LocalObject final : public AIBinder {
  public:
    LocalObject(const AIBinder_Class* clazz, void* args);

    LocalObject* asLocal() override { return this; }
    const std::string& descriptor() const override { return clazz()->descriptor; }
    void* userData() const { return mUserData; }

    /** What other processes know the object by; the export table sets it under its lock. */
    std::optional<uint64_t> mExportId;

    /**
     * Queues a one-way call that came over the connection. True when the caller has to serve the
     * queue with nextAsync(), since nobody does. When the queue is long the connection is kept
     * here, unread, until it has become shorter, and *parked is set.
     */
    bool queueAsync(AsyncCall call, const std::shared_ptr<Connection>& connection, bool* parked);
    /** The next call; false when there is none, which ends the serving. */
    bool nextAsync(AsyncCall* call);

  private:
    ~LocalObject() override = default;
    void onLastStrong() override;

    void* const mUserData;

    std::mutex mAsyncLock;
    std::list<AsyncCall> mAsyncCalls GUARDED_BY(mAsyncLock);
    size_t mAsyncBytes GUARDED_BY(mAsyncLock) = 0;
    bool mAsyncServed GUARDED_BY(mAsyncLock) = false;
    std::vector<std::shared_ptr<Connection>> mParked GUARDED_BY(mAsyncLock);
};

/** An object of another process. */
class ProxyObject final : public AIBinder {
  public:
    ProxyObject(std::shared_ptr<Peer> peer, uint64_t id, std::string descriptor, bool dead);

    ProxyObject* asProxy() override { return this; }
    const std::string& descriptor() const override { return mDescriptor; }

    const std::shared_ptr<Peer>& peer() const { return mPeer; }
    uint64_t id() const { return mId; }
    bool isDead() const { return mDead.load(std::memory_order_acquire); }

    /** References that the owner counts for this proxy; guarded by the peer's lock. */
    uint64_t mReferences = 0;

  private:
    friend class DeathNotifier;

    ~ProxyObject() override = default;
    void onLastStrong() override;

    const std::shared_ptr<Peer> mPeer;
    const uint64_t mId;
    const std::string mDescriptor;
    std::atomic<bool> mDead;  // written under the death notifier's lock
    // Guarded by the death notifier's lock.
    std::vector<std::weak_ptr<DeathLink>> mLinks;
};

}  // namespace binder
