#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <android/binder_ibinder.h>
#include <android/binder_shell.h>

struct AIBinder_Class {
    std::string descriptor;
    std::vector<uint8_t> token;  // of the descriptor, as it leads each call
    AIBinder_Class_onCreate onCreate;
    AIBinder_Class_onDestroy onDestroy;
    AIBinder_Class_onTransact onTransact;
    AIBinder_onDump onDump = nullptr;
    AIBinder_handleShellCommand onShellCommand = nullptr;
    bool hasTokenHeader = true;
};

namespace binder {

class DeathLinks;

/**
 * Who may call an object: sets of bits, of which a caller's has to be contained in the object's.
 */
enum class Stability : uint32_t {
    kUndeclared = 0,
    kVendor = 0b000011,
    kSystem = 0b001100,
    kVintf = 0b111111,
};

/** What all code on Linux counts as. */
inline constexpr Stability kOwnStability = Stability::kSystem;

}  // namespace binder

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

    bool isRemote() const { return mIsRemote; }
    /** Null for a local object, which does not die before its process. */
    virtual binder::DeathLinks* deathLinks() { return nullptr; }

    const AIBinder_Class* clazz() const { return mClass.load(std::memory_order_acquire); }
    /** Sets the class unless there is one; the class that the object has afterwards. */
    const AIBinder_Class* offerClass(const AIBinder_Class* clazz);

    binder::Stability stability() const { return mStability.load(std::memory_order_relaxed); }
    /** Sets the stability unless there is one; the stability that the object has afterwards. */
    binder::Stability offerStability(binder::Stability stability);

    /** How many there are in this process. */
    static int32_t live() { return sLive.load(std::memory_order_relaxed); }

  protected:
    AIBinder(const AIBinder_Class* clazz, bool isRemote) : mClass(clazz), mIsRemote(isRemote) {
        sLive.fetch_add(1, std::memory_order_relaxed);
    }
    virtual ~AIBinder() { sLive.fetch_sub(1, std::memory_order_relaxed); }
    /** The last strong reference is gone; runs on the thread that dropped it. */
    virtual void onLastStrong() = 0;

  private:
    static inline std::atomic<int32_t> sLive{0};

    std::atomic<const AIBinder_Class*> mClass;
    const bool mIsRemote;
    std::atomic<binder::Stability> mStability{binder::Stability::kUndeclared};
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

inline StrongBinder share(AIBinder& binder) {
    binder.incStrong();
    return StrongBinder(&binder);
}

/** An object that this process serves. */
class LocalObject final : public AIBinder {
  public:
    LocalObject(const AIBinder_Class* clazz, void* args)
        : AIBinder(clazz, false), mUserData(clazz->onCreate(args)) {}

    void* userData() const { return mUserData; }

  private:
    ~LocalObject() override = default;
    void onLastStrong() override { clazz()->onDestroy(mUserData); }

    void* const mUserData;
};

/** Null for null and for a remote object. */
inline LocalObject* localOf(AIBinder* binder) {
    return binder == nullptr || binder->isRemote() ? nullptr : static_cast<LocalObject*>(binder);
}

}  // namespace binder
