#pragma once

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/codec/Operations.h"
#include "host/velahost/Watcher.h"

/** "callback" for "IVelaCallback": objects are named as their interfaces are. */
std::string kindOf(const std::string& type);

/** A request whose effect lasts as long as the objects that it is about. */
struct Registration {
    const codec::Operation* operation = nullptr;
    pid_t client = 0;
    ndk::SpAIBinder target;  // the composer client that was asked; null for the main service
    codec::Json arguments;   // but the object
    std::string kind;        // the object's, as recordings name it
    ndk::SpAIBinder object;  // what the request registered or made
    bool isMade = false;
};

/**
 * Keeps what clients have made and registered, so that a recording may begin at any time. Any
 * thread.
 */
class Registrations : public CallTap, public std::enable_shared_from_this<Registrations> {
  public:
    std::unique_ptr<binder::CallWatch> observe(const binder::ObservedCall& call,
                                               const AParcel* arguments) override;

    /** What is there now, in the order in which it came. Forgets what is gone. */
    std::vector<Registration> current();

  private:
    class Watch;

    struct Entry {
        Registration registration;  // without its objects, which it must not hold
        AIBinder* targetAddress;    // which the weak reference keeps from being used again
        ndk::ScopedAIBinder_Weak target;
        ndk::ScopedAIBinder_Weak object;
    };

    /** The registration, if its objects are still there. */
    static std::optional<Registration> promote(const Entry& entry);
    void add(Registration registration);
    std::vector<Registration> collect() REQUIRES(mLock);

    std::mutex mLock;
    std::vector<Entry> mEntries GUARDED_BY(mLock);
};
