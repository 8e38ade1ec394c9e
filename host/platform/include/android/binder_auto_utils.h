#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <android/log.h>

namespace ndk {

/** Owns one strong reference to a binder, or none. Moving copies: both hold one afterwards. */
class SpAIBinder {
  public:
    SpAIBinder() = default;
    /** Takes over the caller's reference. */
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    SpAIBinder(std::nullptr_t) {}
    SpAIBinder(const SpAIBinder& other) { *this = other; }
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        AIBinder_incStrong(other.mBinder);
        set(other.mBinder);
        return *this;
    }

    /** Releases the reference held and takes over the caller's. */
    void set(AIBinder* binder) {
        AIBinder* const previous = peek();
        if (previous != nullptr) AIBinder_decStrong(previous);
        if (peek() != previous) __android_log_assert(nullptr, "binder", "Race detected.");
        mBinder = binder;
    }
    AIBinder* get() const { return mBinder; }
    /** For functions that return a reference through a pointer; releases the one held. */
    AIBinder** getR() {
        set(nullptr);
        return &mBinder;
    }

    bool operator==(const SpAIBinder& rhs) const { return get() == rhs.get(); }
    bool operator!=(const SpAIBinder& rhs) const { return get() != rhs.get(); }
    bool operator<(const SpAIBinder& rhs) const { return AIBinder_lt(get(), rhs.get()); }
    bool operator>(const SpAIBinder& rhs) const { return rhs < *this; }
    bool operator<=(const SpAIBinder& rhs) const { return !(rhs < *this); }
    bool operator>=(const SpAIBinder& rhs) const { return !(*this < rhs); }

  private:
    // Volatile, so that the holder is really read again after the release and not assumed
    // unchanged. It is compared then, not followed.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete)
    AIBinder* peek() const { return *const_cast<AIBinder* const volatile*>(&mBinder); }

    AIBinder* mBinder = nullptr;
};

namespace impl {

/** Owns a resource for which one value means none. */
template <typename T, void (*Destroy)(T), T kNone>
class ScopedAResource {
  public:
    ScopedAResource() : ScopedAResource(kNone) {}
    explicit ScopedAResource(T resource) : mResource(resource) {}
    ~ScopedAResource() { set(kNone); }
    ScopedAResource(ScopedAResource&& other) noexcept : mResource(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }
    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;

    /** Destroys what is held and takes over the resource. */
    void set(T resource) {
        Destroy(mResource);
        mResource = resource;
    }
    T get() const { return mResource; }
    const T* getPointer() const { return &mResource; }
    /** For functions that return a resource through a pointer, or take over the one held. */
    T* getR() { return &mResource; }
    /** The resource becomes the caller's. */
    [[nodiscard]] T release() {
        const T resource = mResource;
        mResource = kNone;
        return resource;
    }

    bool operator==(const ScopedAResource& rhs) const { return get() == rhs.get(); }
    bool operator!=(const ScopedAResource& rhs) const { return get() != rhs.get(); }
    bool operator<(const ScopedAResource& rhs) const { return get() < rhs.get(); }
    bool operator>(const ScopedAResource& rhs) const { return get() > rhs.get(); }
    bool operator<=(const ScopedAResource& rhs) const { return get() <= rhs.get(); }
    bool operator>=(const ScopedAResource& rhs) const { return get() >= rhs.get(); }

  private:
    T mResource;
};

inline void closeDescriptor(int fd) {
    if (fd != -1 && close(fd) != 0)
        syslog(LOG_ERR, "Could not close FD %d: %s", fd, strerror(errno));
}

}  // namespace impl

/** Owns a parcel. */
class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
  public:
    explicit ScopedAParcel(AParcel* parcel = nullptr) : ScopedAResource(parcel) {}
};

/** Owns a status. One that holds none answers as a failed transaction. */
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}

    bool isOk() const { return AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }
    std::string getDescription() const {
        const char* const text = AStatus_getDescription(get());
        std::string description(text);
        AStatus_deleteDescription(text);
        return description;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t error) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(error));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t error, const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(error, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
};

inline std::ostream& operator<<(std::ostream& stream, const ScopedAStatus& status) {
    return stream << status.getDescription();
}

/** Owns a death recipient. */
class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                   nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* recipient = nullptr)
        : ScopedAResource(recipient) {}
};

/** Owns a weak reference. */
class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak = nullptr) : ScopedAResource(weak) {}

    /** Holds null when the object is gone. */
    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

/** Owns a file descriptor; a failed close is reported to syslog. */
class ScopedFileDescriptor : public impl::ScopedAResource<int, impl::closeDescriptor, -1> {
  public:
    using ScopedAResource::ScopedAResource;

    /** A close-on-exec duplicate; holds -1 with errno set when there is none. */
    ScopedFileDescriptor dup() const {
        return ScopedFileDescriptor(fcntl(get(), F_DUPFD_CLOEXEC, 0));
    }
};

}  // namespace ndk
