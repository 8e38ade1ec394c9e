#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include <android-base/thread_annotations.h>

#include "Object.h"

namespace binder {

/**
 * The local objects that other processes refer to, and how often each peer does. An object stays
 * alive while that number, over all peers, is above zero.
 *
 * References that end here are released by the notifier's thread. Any thread.
 */
class Exports {
  public:
    static Exports& get();

    /** Counts one reference for the peer; the object's id, or nothing when the peer is dead. */
    std::optional<uint64_t> add(const Peer& peer, LocalObject& object);
    /** The same for an object that is here already; false when it is not. */
    bool acquire(const Peer& peer, uint64_t id);
    /** Takes back count references, once the peer's first `sequence` one-way calls have arrived. */
    void giveBack(const Peer& peer, uint64_t id, uint64_t count, uint64_t sequence);
    /** Notes that the peer's one-way call of that number has arrived and holds its object. */
    void onewayArrived(const Peer& peer, uint64_t sequence);
    /** Takes back all references of a dead peer. */
    void dropPeer(const Peer& peer);

    /** Keeps the object for good under an id that everybody knows. */
    void addPermanent(uint64_t id, LocalObject& object);
    /** Null when no peer refers to such an object. */
    StrongBinder find(uint64_t id);

  private:
    struct Entry {
        StrongBinder object;
        uint64_t references = 0;
    };
    struct Return {
        uint64_t id;
        uint64_t count;
    };
    struct PeerRecord {
        std::unordered_map<uint64_t, uint64_t> references;
        uint64_t onewayCalls = 0;
        // Given back, but due only when so many one-way calls have arrived.
        std::multimap<uint64_t, Return> early;
    };

    void takeBackLocked(const Return& given, std::vector<StrongBinder>* released) REQUIRES(mLock);
    void countLocked(const Peer& peer, uint64_t id, Entry& entry) REQUIRES(mLock);

    std::mutex mLock;
    uint64_t mNextId GUARDED_BY(mLock) = kFirstId;
    std::unordered_map<uint64_t, Entry> mEntries GUARDED_BY(mLock);
    std::unordered_map<const Peer*, PeerRecord> mPeers GUARDED_BY(mLock);

    static constexpr uint64_t kFirstId = 1;
};

}  // namespace binder
