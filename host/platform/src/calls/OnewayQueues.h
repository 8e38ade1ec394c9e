#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <sys/types.h>

#include <android-base/thread_annotations.h>

#include "calls/OnewayLink.h"
#include "objects/Object.h"
#include "parcel/Parcel.h"

namespace binder {

/** Tells the sender of one-way calls which have been served, small ones many at a time. */
class OnewayReport {
  public:
    explicit OnewayReport(std::shared_ptr<Connection> connection)
        : mConnection(std::move(connection)) {}

    /** What the sender's calls take that wait here. */
    OnewayAccount& waiting() { return mWaiting; }
    void served(const OnewayCost& cost);

  private:
    const std::shared_ptr<Connection> mConnection;
    OnewayAccount mWaiting;
    std::mutex mLock;
    OnewayCost mUnreported GUARDED_BY(mLock);
};

/** A one-way call that waits for its turn, on its sender's account; reports itself when it goes. */
struct OnewayCall {
    OnewayCall(std::shared_ptr<OnewayReport> report, const std::shared_ptr<Account>& account,
               uid_t uid, const Header& header);
    OnewayCall(OnewayCall&&) = default;
    ~OnewayCall();

    std::shared_ptr<OnewayReport> report;
    OnewayCost cost;
    Charge bytes;
    Charge descriptors;
    uid_t uid;
    transaction_code_t code;
    std::unique_ptr<AParcel> in;
};

/**
 * The one-way calls that wait, object by object: calls of one object are served in order and one
 * at a time, objects in parallel. Any thread.
 */
class OnewayQueues {
  public:
    static OnewayQueues& get();

    /** True when somebody has to be found who serves the object's calls, since nobody does. */
    [[nodiscard]] bool add(const LocalObject& object, OnewayCall call);
    /** The next call, for who serves them; nothing when there is none, which ends the serving. */
    std::unique_ptr<OnewayCall> next(const LocalObject& object);

  private:
    std::mutex mLock;
    // Of the objects that somebody serves.
    std::unordered_map<const LocalObject*, std::deque<OnewayCall>> mCalls GUARDED_BY(mLock);
};

/** Serves the object's one-way calls, as many as have a turn; true when there may be more. */
bool serveOneways(LocalObject& object);

}  // namespace binder
