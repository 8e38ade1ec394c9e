#include "calls/Peers.h"

#include <atomic>
#include <optional>
#include <utility>

#include <malloc.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "calls/Exports.h"
#include "calls/Proxy.h"

namespace binder {
namespace {

// Of one control connection, until the others have their turn.
constexpr int kMessagesPerTurn = 64;

std::atomic<Peers*> gPeers{nullptr};

/**
 * Lets the heap keep what large transactions take and give back, over and over. To have the kernel
 * take such memory away and hand it out anew, page by page, costs more than all else about them.
 */
void keepFreedMemory() {
    mallopt(M_MMAP_THRESHOLD, 4 * kMaxTransaction);
    mallopt(M_TRIM_THRESHOLD, 8 * kMaxTransaction);
}

}  // namespace

Peers::Peers(std::unique_ptr<Endpoint> self, ServeCalls serveCalls)
    : mSelf(std::move(self)), mServeCalls(std::move(serveCalls)) {}

Peers* Peers::get() {
    return isForked() ? nullptr : gPeers.load(std::memory_order_acquire);
}

Peers* Peers::start(const ServeCalls& serveCalls) {
    [[maybe_unused]] static const bool created = [&] {
        gPeers.store(create(serveCalls), std::memory_order_release);
        return true;
    }();
    return get();
}

Peers* Peers::create(const ServeCalls& serveCalls) {
    isForked();  // from here on a forked child would find what it cannot use
    std::unique_ptr<Endpoint> self = Endpoint::create();
    if (self == nullptr || !IoThread::get().start()) return nullptr;
    keepFreedMemory();
    auto* const peers = new Peers(std::move(self), serveCalls);  // outlives every thread
    peers->mGreeter = std::make_shared<Greeter>(
            *peers->mSelf,
            [peers](const std::string& name, std::shared_ptr<Connection> connection) {
                peers->greeted(name, std::move(connection));
            });
    return peers->mGreeter->start() ? peers : nullptr;
}

std::shared_ptr<Peer>& Peers::findOrMakeLocked(const std::string& name) {
    std::shared_ptr<Peer>& peer = mPeers[name];
    if (peer == nullptr || peer->isDead()) peer = std::make_shared<Peer>(*mSelf, name);
    return peer;
}

std::shared_ptr<Peer> Peers::obtain(const std::string& name) {
    std::shared_ptr<Peer> peer;
    {
        // Connecting to a local socket does not wait, so others may wait for it here.
        const std::lock_guard lock(mLock);
        if (const auto found = mPeers.find(name); found != mPeers.end()) return found->second;
        peer = findOrMakeLocked(name);
        binder_status_t status = STATUS_OK;
        const std::shared_ptr<Connection> control =
                mSelf->connect(name, ConnectionKind::kControl, &status);
        if (control != nullptr && addControl(peer, control)) return peer;
    }
    ended(*peer);
    return peer;
}

std::shared_ptr<Peer> Peers::find(std::string_view name) {
    const std::lock_guard lock(mLock);
    const auto found = mPeers.find(std::string(name));
    return found == mPeers.end() ? nullptr : found->second;
}

void Peers::ended(Peer& peer) {
    if (!peer.end()) return;
    std::shared_ptr<Peer> last;  // released without the lock
    {
        const std::lock_guard lock(mLock);
        const auto found = mPeers.find(peer.name());
        if (found != mPeers.end() && found->second.get() == &peer) {
            last = std::move(found->second);
            mPeers.erase(found);
        }
    }
    Proxy::ownerDied(peer);
    Exports::get().dropPeer(peer.number());
}

binder_status_t Peers::connectionBroke(Peer& peer) {
    if (!peer.isDead() && !peer.isEnding()) {
        log(ANDROID_LOG_WARN, "A connection to process %d broke, though it lives",
            pidOfEndpoint(peer.name()));
        return STATUS_FAILED_TRANSACTION;
    }
    // Whoever has seen the end of a process must not find it alive in the next moment.
    ended(peer);
    return STATUS_DEAD_OBJECT;
}

void Peers::greeted(const std::string& name, std::shared_ptr<Connection> connection) {
    std::shared_ptr<Peer> peer;
    if (connection->kind() == ConnectionKind::kControl) {
        const std::lock_guard lock(mLock);
        peer = findOrMakeLocked(name);
        if (addControl(peer, connection)) return;
    } else {
        peer = find(name);
        if (peer != nullptr && peer->addCall(connection)) {
            mServeCalls(std::move(peer), std::move(connection));
            return;
        }
    }
    log(ANDROID_LOG_WARN, "Refusing a connection of process %d: %s", pidOfEndpoint(name),
        peer == nullptr || peer->isDead() ? "it is not connected" : "it has too many");
}

bool Peers::addControl(const std::shared_ptr<Peer>& peer,
                       const std::shared_ptr<Connection>& control) {
    return peer->addControl(control) &&
           control->receiveWith(
                   [this, weakPeer = std::weak_ptr(peer), weakControl = std::weak_ptr(control)] {
                       const std::shared_ptr<Peer> from = weakPeer.lock();
                       const std::shared_ptr<Connection> over = weakControl.lock();
                       if (from != nullptr && over != nullptr) receive(*from, *over);
                   });
}

void Peers::receive(Peer& peer, Connection& control) {
    for (int i = 0; i < kMessagesPerTurn; ++i) {
        Incoming message;
        switch (control.receive(&message, Connection::Wait::kNo)) {
            case Connection::Received::kMessage:
                serve(peer, message);
                continue;
            case Connection::Received::kNotYet:
                return;
            case Connection::Received::kEnd:
                // What a process sent before it went is still served.
                mGreeter->greetAll();
                ended(peer);
                return;
            case Connection::Received::kMalformed:
                ended(peer);
                return;
        }
    }
}

void Peers::serve(Peer& peer, const Incoming& message) {
    const Header& header = message.header;
    Exports& exports = Exports::get();
    if (header.kind == MessageKind::kRelease) {
        exports.release(peer.number(), header.object, static_cast<uint32_t>(header.count));
    } else if (const auto name = parseName(message.table); name.has_value()) {
        // Connected to the process of that name, this one learns of its death.
        const std::shared_ptr<Peer> other = header.kind == MessageKind::kClaim ? find(*name)
                                            : *name == mSelf->name()           ? nullptr
                                                                     : obtain(std::string(*name));
        const PeerNumber number = other == nullptr ? kSelf : other->number();
        if (header.kind == MessageKind::kClaim) {
            exports.claim(peer.number(), number, header.object);
        } else if (header.kind == MessageKind::kGrant) {
            exports.grant(peer.number(), number, header.object);
        } else {
            exports.revoke(peer.number(), number, header.object);
        }
        if (other != nullptr && other->isDead()) exports.dropPeer(number);
    }
    // Who died meanwhile has been forgotten already, and must be again.
    if (peer.isDead()) exports.dropPeer(peer.number());
}

}  // namespace binder
