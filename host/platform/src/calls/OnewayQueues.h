#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <sys/types.h>

#include <android-base/thread_annotations.h>

#include "calls/Peer.h"
#include "objects/Object.h"
#include "parcel/Parcel.h"

namespace binder {

/** A one-way call that waits for its turn; reports itself served when it goes. */
struct OnewayCall {
    std::shared_ptr<Peer> from;
    std::shared_ptr<Connection> over;
    OnewayCost cost;
    std::unique_ptr<AParcel> in;
    transaction_code_t code = 0;

    OnewayCall(std::shared_ptr<Peer> from, std::shared_ptr<Connection> over, Incoming message);
    OnewayCall(OnewayCall&&) = default;
    ~OnewayCall();
};

/**
 * The one-way calls that wait, object by object: calls of one object are served in order and one
 * at a time, objects in parallel. Any thread.
 */
class OnewayQueues {
  public:
    static OnewayQueues& get();

    /** True when the caller has to serve the object's calls, since nobody does. */
    [[nodiscard]] bool add(const LocalObject& object, OnewayCall call);
    /** The next call, for who serves them; nothing when there is none, which ends the serving. */
    std::unique_ptr<OnewayCall> next(const LocalObject& object);

  private:
    std::mutex mLock;
    // Of the objects that somebody serves.
    std::unordered_map<const LocalObject*, std::deque<OnewayCall>> mCalls GUARDED_BY(mLock);
};

}  // namespace binder
