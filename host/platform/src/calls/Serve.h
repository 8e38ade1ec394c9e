#pragma once

#include <memory>

#include <sys/types.h>

#include <android/binder_ibinder.h>

#include "calls/Peer.h"
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

/** Another process's open connection, and which process that is. */
struct Line {
    std::shared_ptr<Peer> peer;
    std::shared_ptr<Connection> connection;
};

/** What the current thread is serving, innermost first. */
class ServedCall {
  public:
    /** line: where the caller waits; null for a one-way call, since nobody does. */
    ServedCall(const Line* line, pid_t pid, uid_t uid);
    ~ServedCall();
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;

    pid_t pid() const { return mPid; }
    uid_t uid() const { return mUid; }

    /** Null when the thread serves no call of another process. */
    static const ServedCall* current();
    /** The line on whose other end a thread of the peer waits for this one; null without one. */
    static const Line* waitingPeer(const Peer& peer);

  private:
    const Line* const mLine;
    const pid_t mPid;
    const uid_t mUid;
    const ServedCall* const mOuter;
};

/** Has the object serve a call whose parcel stands at its beginning. */
binder_status_t serveLocally(LocalObject& object, transaction_code_t code, const AParcel& in,
                             AParcel* out);

/** Serves a call that arrived and answers it. False, logged, when the line is to be ended. */
bool serveCall(const Line& line, Incoming message);

/**
 * Takes in a one-way call, or a return of references. False, logged, when the line is to be ended.
 * *toServe is the object whose calls the caller has to serve with serveOneways(), or null.
 */
bool receiveOneway(const Line& line, Incoming message, StrongBinder* toServe);
/** Serves the object's one-way calls until there are no more. */
void serveOneways(LocalObject& object);

}  // namespace binder
