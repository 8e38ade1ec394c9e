#pragma once

#include <memory>

#include "calls/Peer.h"
#include "parcel/Parcel.h"
#include "transport/Message.h"

namespace binder {

/** Makes a parcel ready to be sent to any process. The parcel must outlive it. */
class Packed {
  public:
    /** waiting: the processes whose threads wait for a call's sender. */
    explicit Packed(const AParcel* parcel, std::vector<pid_t> waiting = {});

    /**
     * STATUS_FAILED_TRANSACTION when it is more than a transaction may hold, or than there is room
     * for; STATUS_DEAD_OBJECT when an object in it is dead.
     */
    binder_status_t status() const { return mStatus; }
    Outgoing& message() { return mMessage; }

  private:
    binder_status_t pack(const AParcel& parcel, Table* table);
    binder_status_t packBinder(AIBinder& binder, ObjectRecord* record);

    Outgoing mMessage;
    binder_status_t mStatus = STATUS_OK;
};

enum class Unpacked {
    kWhole,
    kIncomplete,  // there was no room for its descriptors: the transaction has failed
    kStale,       // an object of this process has gone meanwhile: the transaction has failed
    kMalformed,
};

/** Hands the message's binders and descriptors to its parcel. */
Unpacked unpack(const Peer& from, Incoming* message);

}  // namespace binder
