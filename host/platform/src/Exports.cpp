#include "Exports.h"

#include <algorithm>
#include <utility>

#include "Death.h"
#include "Peer.h"

namespace binder {

Exports& Exports::get() {
    static Exports* const instance = new Exports;  // outlives every thread
    return *instance;
}

void Exports::countLocked(const Peer& peer, uint64_t id, Entry& entry) {
    ++entry.references;
    ++mPeers[&peer].references[id];
}

std::optional<uint64_t> Exports::add(const Peer& peer, LocalObject& object) {
    const std::lock_guard lock(mLock);
    // The peer's death is marked before its references are dropped: none is counted behind that.
    if (peer.isDead()) return std::nullopt;
    if (!object.mExportId.has_value()) object.mExportId = mNextId++;
    Entry& entry = mEntries[*object.mExportId];
    if (entry.object == nullptr) entry.object = share(&object);
    countLocked(peer, *object.mExportId, entry);
    return object.mExportId;
}

bool Exports::acquire(const Peer& peer, uint64_t id) {
    const std::lock_guard lock(mLock);
    const auto entry = mEntries.find(id);
    if (entry == mEntries.end() || peer.isDead()) return false;
    countLocked(peer, id, entry->second);
    return true;
}

void Exports::takeBackLocked(const Return& given, std::vector<StrongBinder>* released) {
    const auto entry = mEntries.find(given.id);
    entry->second.references -= given.count;
    if (entry->second.references != 0) return;
    released->push_back(std::move(entry->second.object));
    mEntries.erase(entry);
}

void Exports::giveBack(const Peer& peer, uint64_t id, uint64_t count, uint64_t sequence) {
    std::vector<StrongBinder> released;
    {
        const std::lock_guard lock(mLock);
        const auto found = mPeers.find(&peer);
        if (found == mPeers.end()) return;
        PeerRecord& record = found->second;
        const auto held = record.references.find(id);
        if (held == record.references.end()) return;
        // No peer gives back more than it has.
        count = std::min(count, held->second);
        if (count == 0) return;
        held->second -= count;
        if (held->second == 0) record.references.erase(held);
        if (sequence > record.onewayCalls) {
            record.early.emplace(sequence, Return{id, count});
        } else {
            takeBackLocked({id, count}, &released);
        }
    }
    DeathNotifier::get().release(std::move(released));
}

void Exports::onewayArrived(const Peer& peer, uint64_t sequence) {
    std::vector<StrongBinder> released;
    {
        const std::lock_guard lock(mLock);
        if (peer.isDead()) return;
        PeerRecord& record = mPeers[&peer];
        record.onewayCalls = std::max(record.onewayCalls, sequence);
        const auto due = record.early.upper_bound(record.onewayCalls);
        for (auto early = record.early.begin(); early != due; ++early) {
            takeBackLocked(early->second, &released);
        }
        record.early.erase(record.early.begin(), due);
    }
    DeathNotifier::get().release(std::move(released));
}

void Exports::dropPeer(const Peer& peer) {
    std::vector<StrongBinder> released;
    {
        const std::lock_guard lock(mLock);
        const auto found = mPeers.find(&peer);
        if (found == mPeers.end()) return;
        for (const auto& [id, count] : found->second.references) {
            takeBackLocked({id, count}, &released);
        }
        for (const auto& [sequence, early] : found->second.early)
            takeBackLocked(early, &released);
        mPeers.erase(found);
    }
    DeathNotifier::get().release(std::move(released));
}

void Exports::addPermanent(uint64_t id, LocalObject& object) {
    const std::lock_guard lock(mLock);
    object.mExportId = id;
    mEntries[id] = {.object = share(&object), .references = 1};
}

StrongBinder Exports::find(uint64_t id) {
    const std::lock_guard lock(mLock);
    const auto entry = mEntries.find(id);
    return entry == mEntries.end() ? nullptr : share(entry->second.object.get());
}

}  // namespace binder
