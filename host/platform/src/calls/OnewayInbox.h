#pragma once

#include <functional>
#include <memory>
#include <unordered_map>

#include "calls/OnewayQueues.h"
#include "calls/Peers.h"

namespace binder {

/**
 * The receiving side of a connection for one-way calls: queues the calls of each object, and holds
 * the objects that the sender calls until it says that no more calls of them follow, or ends. Used
 * by the I/O thread, so calls are taken in, and a dead sender's descriptors let go of, also while
 * nobody is free to serve them.
 */
class OnewayInbox : public std::enable_shared_from_this<OnewayInbox> {
  public:
    /** Finds somebody who serves the object's calls. */
    using ToServe = std::function<void(StrongBinder object)>;

    OnewayInbox(Line line, ToServe toServe);
    ~OnewayInbox();

    /** Takes in what comes from now on, until the connection's end. */
    static void serve(Line line, const ToServe& toServe);

  private:
    struct Held {
        StrongBinder object;
        size_t proxies = 0;  // of the sender
    };

    void receive();
    /** False, logged, when the connection is to be ended. */
    bool take(Incoming message);
    bool takeCall(Incoming message);
    void hold(uint64_t id);
    void done(uint64_t id);
    void end();

    const Line mLine;
    const ToServe mToServe;
    const std::shared_ptr<OnewayReport> mReport;
    std::unordered_map<uint64_t, Held> mHeld;
};

}  // namespace binder
