#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>

#include "objects/Object.h"

namespace binder {

/** Names a peer for good: another one never gets the same number. */
using PeerNumber = uint64_t;
/** This process itself. */
inline constexpr PeerNumber kSelf = 0;

/**
 * The local objects that other processes refer to, each under a random number that one has to have
 * been given, and how many references each peer has. An object is kept alive while any peer has
 * one, and gets a new number when it is exported again.
 *
 * When a reference travels on from one peer to another, the one that sends it grants it before, and
 * the one that gets it claims it after; both say so here, over connections of their own, so either
 * may come first. A grant keeps the object alive until it is claimed, or until one of the two dies.
 * What a peer says of references that it never had harms only itself.
 *
 * Objects that end here are released by the worker. Any thread.
 */
class Exports {
  public:
    static Exports& get();

    /** Counts one reference of the holder; the object's number. */
    uint64_t add(PeerNumber holder, LocalObject& object);
    void release(PeerNumber holder, uint64_t id, uint32_t count);
    void grant(PeerNumber granter, PeerNumber receiver, uint64_t id);
    /** Undoes a grant that cannot be claimed any more. */
    void revoke(PeerNumber granter, PeerNumber receiver, uint64_t id);
    /** Counts one reference that the receiver has got from the granter; kSelf when that is gone. */
    void claim(PeerNumber receiver, PeerNumber granter, uint64_t id);
    /** Forgets all that a dead peer had and granted. */
    void dropPeer(PeerNumber peer);

    /** Keeps the object for good under a number that everybody knows. */
    void addPermanent(uint64_t id, LocalObject& object);
    /** Null when there is no such object. */
    StrongBinder find(uint64_t id);

  private:
    struct Holder {
        int64_t references = 0;                 // below zero while a return has overtaken its claim
        std::map<PeerNumber, int64_t> granted;  // below zero while a claim has overtaken its grant

        bool holds() const;
        bool isEmpty() const { return references == 0 && granted.empty(); }
    };
    struct Entry {
        StrongBinder object;
        bool isPermanent = false;
        std::map<PeerNumber, Holder> holders;
    };
    using Entries = std::unordered_map<uint64_t, Entry>;

    uint64_t newIdLocked() REQUIRES(mLock);
    /** Has the change made to the holder, where the object is here, and releases it when due. */
    template <typename Change>
    void change(PeerNumber holder, uint64_t id, const Change& change);
    /** Takes the entry out when nobody holds its object; then the object, else null. */
    StrongBinder takeUnheldLocked(Entries::iterator entry) REQUIRES(mLock);

    std::mutex mLock;
    Entries mEntries GUARDED_BY(mLock);
    std::unordered_map<const LocalObject*, uint64_t> mIds GUARDED_BY(mLock);
};

}  // namespace binder
