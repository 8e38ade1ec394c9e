#include "calls/Exports.h"

#include <algorithm>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "base/Worker.h"

namespace binder {
namespace {

/** Releases the objects on the worker, since that may run their destructors. */
void releaseLater(std::vector<StrongBinder> objects) {
    if (objects.empty()) return;
    auto shared = std::make_shared<std::vector<StrongBinder>>(std::move(objects));
    Worker::get().post([shared = std::move(shared)]() { shared->clear(); });
}

void count(std::map<PeerNumber, int64_t>* granted, PeerNumber granter, int64_t more) {
    int64_t& number = (*granted)[granter];
    number += more;
    if (number == 0) granted->erase(granter);
}

}  // namespace

bool Exports::Holder::holds() const {
    int64_t held = references;
    for (const auto& [granter, count] : granted)
        held += std::max<int64_t>(count, 0);
    return held > 0;
}

Exports& Exports::get() {
    static Exports* const instance = new Exports;  // outlives every thread
    return *instance;
}

uint64_t Exports::newIdLocked() {
    static std::random_device random;
    for (;;) {
        const uint64_t id = uint64_t{random()} << 32 | random();
        if (id != 0 && !mEntries.contains(id)) return id;
    }
}

StrongBinder Exports::takeUnheldLocked(Entries::iterator entry) {
    const auto holds = [](const auto& holder) { return holder.second.holds(); };
    const auto& holders = entry->second.holders;
    if (entry->second.isPermanent || std::any_of(holders.begin(), holders.end(), holds)) {
        return nullptr;
    }
    StrongBinder object = std::move(entry->second.object);
    mIds.erase(localOf(object.get()));
    mEntries.erase(entry);
    return object;
}

template <typename Change>
void Exports::change(PeerNumber holder, uint64_t id, const Change& change) {
    std::vector<StrongBinder> released;
    {
        const std::lock_guard lock(mLock);
        const auto entry = mEntries.find(id);
        if (entry == mEntries.end() || entry->second.isPermanent) return;
        auto& holders = entry->second.holders;
        const auto found = holders.try_emplace(holder).first;
        change(found->second);
        const bool holds = found->second.holds();
        if (found->second.isEmpty()) holders.erase(found);
        if (holds) return;
        if (StrongBinder object = takeUnheldLocked(entry)) released.push_back(std::move(object));
    }
    releaseLater(std::move(released));
}

uint64_t Exports::add(PeerNumber holder, LocalObject& object) {
    const std::lock_guard lock(mLock);
    const auto [known, isNew] = mIds.try_emplace(&object, 0);
    if (isNew) {
        known->second = newIdLocked();
        mEntries[known->second].object = share(object);
    }
    Entry& entry = mEntries[known->second];
    if (!entry.isPermanent) ++entry.holders[holder].references;
    return known->second;
}

void Exports::release(PeerNumber holder, uint64_t id, uint32_t count) {
    change(holder, id, [count](Holder& changed) { changed.references -= count; });
}

void Exports::grant(PeerNumber granter, PeerNumber receiver, uint64_t id) {
    change(receiver, id, [&](Holder& changed) { count(&changed.granted, granter, 1); });
}

void Exports::revoke(PeerNumber granter, PeerNumber receiver, uint64_t id) {
    change(receiver, id, [&](Holder& changed) {
        const auto granted = changed.granted.find(granter);
        const bool isOpen = granted != changed.granted.end() && granted->second > 0;
        if (isOpen) count(&changed.granted, granter, -1);
    });
}

void Exports::claim(PeerNumber receiver, PeerNumber granter, uint64_t id) {
    change(receiver, id, [&](Holder& changed) {
        ++changed.references;
        if (granter != kSelf) count(&changed.granted, granter, -1);
    });
}

void Exports::dropPeer(PeerNumber peer) {
    std::vector<StrongBinder> released;
    {
        const std::lock_guard lock(mLock);
        for (auto next = mEntries.begin(); next != mEntries.end();) {
            const auto entry = next++;
            auto& holders = entry->second.holders;
            size_t changes = holders.erase(peer);
            for (auto& [number, holder] : holders)
                changes += holder.granted.erase(peer);
            if (changes == 0) continue;
            std::erase_if(holders, [](const auto& holder) { return holder.second.isEmpty(); });
            if (StrongBinder object = takeUnheldLocked(entry)) {
                released.push_back(std::move(object));
            }
        }
    }
    releaseLater(std::move(released));
}

void Exports::addPermanent(uint64_t id, LocalObject& object) {
    const std::lock_guard lock(mLock);
    mIds[&object] = id;
    mEntries[id] = {.object = share(object), .isPermanent = true, .holders = {}};
}

StrongBinder Exports::find(uint64_t id) {
    const std::lock_guard lock(mLock);
    const auto entry = mEntries.find(id);
    return entry == mEntries.end() ? nullptr : share(*entry->second.object);
}

}  // namespace binder
