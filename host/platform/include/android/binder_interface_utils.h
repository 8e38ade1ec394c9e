#pragma once

#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_shell.h>
#include <android/log.h>

namespace ndk {

/**
 * Root of the objects whose owners are std::shared_ptr. make() is the only way to create one:
 * destroying an object that was created otherwise aborts.
 */
class SharedRefBase {
  public:
    SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;
    virtual ~SharedRefBase() {
        if (!mMade) {
            __android_log_assert(nullptr, "binder", "object not created by SharedRefBase::make");
        }
    }

    /** One more owner; null inside the constructor and the destructor. Any thread. */
    std::shared_ptr<SharedRefBase> ref() { return mSelf.lock(); }
    template <typename Child>
    std::shared_ptr<Child> ref() {
        return std::static_pointer_cast<Child>(ref());
    }

    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        std::shared_ptr<T> made(new T(std::forward<Args>(args)...));
        SharedRefBase& base = *made;
        base.mSelf = std::static_pointer_cast<SharedRefBase>(made);
        base.mMade = true;
        return made;
    }

    static void operator delete(void* memory) { ::operator delete(memory); }

  private:
    static void* operator new(size_t size) { return ::operator new(size); }

    std::weak_ptr<SharedRefBase> mSelf;
    bool mMade = false;
};

/** Base of every interface, of the objects that serve it and of the proxies. */
class ICInterface : public SharedRefBase {
  public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    /** Writes a text for people to fd; nothing unless overridden. */
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
    /** Serves a command line; does nothing unless overridden. */
    virtual binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                               uint32_t argc);

    /**
     * The local object behind the binder; null for a remote binder and for null. The binder's class
     * must come from defineClass().
     */
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder);
    /** A class whose objects hold the interface object that AIBinder_new is given. */
    static AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                       AIBinder_Class_onTransact onTransact);
};

/** Base of the objects that serve INTERFACE. */
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    /** The same binder for as long as anybody holds it; the object itself does not. Any thread. */
    SpAIBinder asBinder() final {
        const std::lock_guard lock(mMutex);
        SpAIBinder binder = mWeakBinder.promote();
        if (binder.get() == nullptr) {
            binder = createBinder();
            mWeakBinder.set(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }
    bool isRemote() final { return false; }

  protected:
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mMutex;
    ScopedAIBinder_Weak mWeakBinder;  // guarded by mMutex
};

/** Base of the proxies of INTERFACE. */
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
  public:
    explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}

    SpAIBinder asBinder() final { return mBinder; }
    bool isRemote() final { return AIBinder_isRemote(mBinder.get()); }

  private:
    SpAIBinder mBinder;
};

namespace impl {

using InterfaceOwner = std::shared_ptr<ICInterface>;

inline ICInterface& interfaceOf(AIBinder* binder) {
    return **static_cast<InterfaceOwner*>(AIBinder_getUserData(binder));
}
inline void* onCreate(void* args) {
    return new InterfaceOwner(static_cast<ICInterface*>(args)->ref<ICInterface>());
}
inline void onDestroy(void* userData) {
    delete static_cast<InterfaceOwner*>(userData);
}
inline binder_status_t onDump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    return interfaceOf(binder).dump(fd, args, numArgs);
}
inline binder_status_t onShellCommand(AIBinder* binder, int in, int out, int err, const char** argv,
                                      uint32_t argc) {
    return interfaceOf(binder).handleShellCommand(in, out, err, argv, argc);
}

}  // namespace impl

inline binder_status_t ICInterface::dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
    return STATUS_OK;
}

inline binder_status_t ICInterface::handleShellCommand(int /*in*/, int /*out*/, int /*err*/,
                                                       const char** /*argv*/, uint32_t /*argc*/) {
    return STATUS_OK;
}

inline std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    void* const userData = AIBinder_getUserData(binder);
    return userData == nullptr ? nullptr : *static_cast<impl::InterfaceOwner*>(userData);
}

inline AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                                AIBinder_Class_onTransact onTransact) {
    AIBinder_Class* const clazz =
            AIBinder_Class_define(interfaceDescriptor, impl::onCreate, impl::onDestroy, onTransact);
    if (clazz == nullptr) return nullptr;
    AIBinder_Class_setOnDump(clazz, impl::onDump);
    AIBinder_Class_setHandleShellCommand(clazz, impl::onShellCommand);
    return clazz;
}

}  // namespace ndk
