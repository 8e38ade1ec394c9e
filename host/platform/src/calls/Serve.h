#pragma once

#include <memory>
#include <span>
#include <vector>

#include <sys/types.h>

#include <android/binder_ibinder.h>

#include "calls/Peers.h"
#include "objects/Object.h"
#include "parcel/Parcel.h"

namespace binder {

// Codes that every object answers, beside those of its interface.
constexpr transaction_code_t specialCode(char a, char b, char c, char d) {
    return static_cast<transaction_code_t>(a << 24 | b << 16 | c << 8 | d);
}
inline constexpr transaction_code_t kPing = specialCode('_', 'P', 'N', 'G');
inline constexpr transaction_code_t kDump = specialCode('_', 'D', 'M', 'P');
inline constexpr transaction_code_t kInterface = specialCode('_', 'N', 'T', 'F');
inline constexpr transaction_code_t kShellCommand = specialCode('_', 'C', 'M', 'D');

inline bool isUserCode(transaction_code_t code) {
    return code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION;
}

/** What the current thread is serving, innermost first. */
class ServedCall {
  public:
    /**
     * line: where the caller waits; null for a one-way call, since nobody does. waiting: the
     * processes whose threads wait for the caller, the nearest first.
     */
    ServedCall(const Line* line, std::span<const pid_t> waiting, pid_t pid, uid_t uid);
    ~ServedCall();
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;

    pid_t pid() const { return mPid; }
    uid_t uid() const { return mUid; }

    /** Null when the thread serves no call of another process. */
    static const ServedCall* current();
    /** False when the thread serves as many within each other as it may. */
    static bool mayNest();
    /** The processes whose threads wait for this one, the nearest first. */
    static std::vector<pid_t> waiting();

    /** The way to a thread of another process that waits for this one. */
    struct Way {
        const Line* line = nullptr;  // null when none waits
        bool isDirect = false;       // it is the other end of the line; else that knows it
    };
    static Way wayTo(pid_t pid);

  private:
    const Line* const mLine;
    const std::span<const pid_t> mWaiting;
    const pid_t mPid;
    const uid_t mUid;
    const ServedCall* const mOuter;
    const size_t mDepth;
};

/** Has the object serve a call whose parcel stands at its beginning. */
binder_status_t serveLocally(LocalObject& object, transaction_code_t code, const AParcel& in,
                             AParcel* out);
/** Has the object serve a call of another process, which may not call every object. */
binder_status_t serveOther(LocalObject& object, transaction_code_t code, const AParcel& in,
                           AParcel* out);

/** Serves a call that arrived and answers it. False, logged, when the line is to be ended. */
bool serveCall(const Line& line, Incoming message);

/**
 * A line came for a thread that waits further up: serves the one call that it brings when that is
 * this one, else hands it on. False, logged, when the line over which it came is to be ended.
 */
bool serveHandedLine(const Line& over, Incoming message);

}  // namespace binder
