#pragma once

#include <memory>
#include <vector>

#include "calls/Peer.h"
#include "parcel/Parcel.h"
#include "transport/Connection.h"

namespace binder {

/**
 * Makes a parcel ready to be sent to the peer: writes the object table, counts the references to
 * local objects, and grants those to others. Unless sent() is called all of that is undone at the
 * end. The parcel must outlive it.
 */
class Packed {
  public:
    Packed(Peer& peer, const AParcel* parcel);
    ~Packed();
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;

    /**
     * STATUS_FAILED_TRANSACTION when it is more than a transaction may hold, STATUS_DEAD_OBJECT
     * when an object in it, or the peer, is dead.
     */
    binder_status_t status() const { return mStatus; }
    Outgoing& message() { return mMessage; }
    void sent() { mSent = true; }

  private:
    binder_status_t pack(const AParcel& parcel);
    binder_status_t packBinder(uint32_t offset, AIBinder& binder);

    Peer& mPeer;
    Outgoing mMessage;
    std::vector<uint64_t> mCounted;
    std::vector<const AIBinder*> mGranted;
    binder_status_t mStatus = STATUS_OK;
    bool mSent = false;
};

enum class Unpacked {
    kWhole,
    kIncomplete,  // descriptors were lost for want of room: the transaction has failed
    kStale,       // an object of this process has gone meanwhile: the transaction has failed
    kMalformed,
};

/** Hands the message's binders and descriptors to its parcel. */
Unpacked unpack(const std::shared_ptr<Peer>& from, Incoming* message);

}  // namespace binder
