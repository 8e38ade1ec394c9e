#pragma once

#include <memory>

#include <android/binder_ibinder.h>

#include "Connection.h"
#include "Object.h"

namespace binder {

// Codes that every object answers, beside those of its interface.
constexpr transaction_code_t specialCode(char a, char b, char c, char d) {
    return static_cast<transaction_code_t>(a << 24 | b << 16 | c << 8 | d);
}
inline constexpr transaction_code_t kPing = specialCode('_', 'P', 'N', 'G');
inline constexpr transaction_code_t kDump = specialCode('_', 'D', 'M', 'P');
inline constexpr transaction_code_t kInterface = specialCode('_', 'N', 'T', 'F');
inline constexpr transaction_code_t kShellCommand = specialCode('_', 'C', 'M', 'D');

/** What the current thread is serving, innermost first. */
struct ServedCall {
    ServedCall(Connection* connection, pid_t pid, uid_t uid);
    ~ServedCall();
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;

    /** Null when the thread serves no call of another process. */
    static const ServedCall* current();
    /** The connection on whose other end a thread of the peer waits for us; null when there is
     * none. */
    static Connection* waitingPeer(const Peer& peer);

    Connection* const connection;  // null for a one-way call: nobody waits
    const pid_t pid;
    const uid_t uid;
    const ServedCall* const outer;
};

/** Has the object serve a call whose parcel stands at its beginning. */
binder_status_t serveLocally(LocalObject& object, transaction_code_t code, const AParcel& in,
                             AParcel* out);

/** Serves a call that arrived and answers it. False, logged, when the connection is to be ended. */
bool serveCall(const std::shared_ptr<Connection>& connection, Incoming message);
/**
 * Queues a one-way call, has the connection armed again and serves the object's queue unless
 * another thread does. False, logged, when the connection is to be ended; then it has not been
 * armed.
 */
bool serveOneway(const std::shared_ptr<Connection>& connection, Incoming message);

}  // namespace binder
