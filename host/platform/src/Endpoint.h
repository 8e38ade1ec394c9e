#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "Peer.h"
#include "RuntimeFolder.h"

namespace binder {

/**
 * The process as others see it: a listening socket in the runtime folder, named after the process,
 * and the peers that it is connected to. Made at the first need, lives until the process ends.
 *
 * A connection that comes in is greeted by the I/O thread: it has to say who it is, and the
 * socket's credentials have to agree.
 */
class Endpoint {
  public:
    /** Null, logged, when it cannot be made; null in a process that was forked from one that has
     * it. */
    static Endpoint* get();

    const std::string& name() const { return mName; }
    const RuntimeFolder& folder() const { return mFolder; }

    /** The peer of that name, connected to when it is not yet; dead when that fails. Never itself.
     */
    std::shared_ptr<Peer> peer(const std::string& name);
    /** The peer is dead. */
    void forget(const Peer& peer);

    /** Null with *status set when the peer cannot be reached. */
    std::shared_ptr<Connection> connect(const std::shared_ptr<Peer>& peer, ConnectionKind kind,
                                        binder_status_t* status);

    // --- for the I/O thread ---

    int listener() const { return mListener.get(); }
    /** The next connection that came in, not yet greeted; null when there is none. */
    std::shared_ptr<Connection> accept();

    enum class Greeting {
        kNotYet,   // more of its hello has to come
        kRefused,  // wrong, logged, or ended
        kControl,  // the peer's control connection: the I/O thread serves it
        kParked,   // its peer has yet to bring a control connection
        kServed,   // complete: the thread pool serves it
    };
    Greeting greet(const std::shared_ptr<Connection>& connection);
    /** Looks for the peer of a parked connection once more. */
    Greeting greetParked(const std::shared_ptr<Connection>& connection);

  private:
    Endpoint(const RuntimeFolder& folder, std::string name, android::base::unique_fd listener);

    static Endpoint* create();
    Greeting greetControl(const std::shared_ptr<Connection>& connection);
    std::shared_ptr<Peer> findOrCreateLocked(const std::string& name) REQUIRES(mLock);

    const RuntimeFolder& mFolder;
    const std::string mName;
    const android::base::unique_fd mListener;
    android::base::unique_fd mSpare;  // of the I/O thread: lets it refuse when descriptors run out

    std::mutex mLock;
    std::unordered_map<std::string, std::shared_ptr<Peer>> mPeers GUARDED_BY(mLock);
};

}  // namespace binder
