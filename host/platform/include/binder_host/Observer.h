#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

/**
 * What tools on a PC see of this process's calls and objects. The calls themselves, their objects'
 * identity and lifetime, and the deaths of clients are the same with and without observers.
 */
namespace binder {

/** A call of a class's own operations, not of what every object answers. */
struct ObservedCall {
    bool served;       // by an object of this process; else made of another's
    AIBinder* object;  // valid during the call
    const char* descriptor;
    transaction_code_t code;
};

/** One call that an observer wants to see the end of. Destroyed on the thread of the call. */
class [[gnu::visibility("default")]] CallWatch {
  public:
    virtual ~CallWatch() = default;
    /** `reply` stands at its start; it is null for a one-way call and when the status is not ok. */
    virtual void ended(binder_status_t status, const AParcel* reply) = 0;
};

/**
 * Called before each call, on its thread; AIBinder_getCallingPid() tells a served call's caller.
 * `arguments` stands at the first one, and may be read. Null: the end is not of interest.
 */
using CallObserver =
        std::function<std::unique_ptr<CallWatch>(const ObservedCall&, const AParcel* arguments)>;

/** Observes all calls from now until the process ends. Not while calls are under way. */
[[gnu::visibility("default")]] void addCallObserver(CallObserver observer);

/** How many binder objects this process has: its own, and others' that it holds. Any thread. */
[[gnu::visibility("default")]] int32_t liveObjects();

/** The process that serves the object, which may be this one; 0 for null. */
[[gnu::visibility("default")]] pid_t servingProcess(AIBinder* binder);

}  // namespace binder
