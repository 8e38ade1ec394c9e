#include "calls/Route.h"

#include <utility>

#include "calls/Peers.h"

namespace binder {
namespace {

// Beyond these, who calls at the same time again has to connect again.
constexpr size_t kMostIdle = 8;

}  // namespace

Route::Route(Peers& peers, std::shared_ptr<Peer> peer, std::string name)
    : mPeers(peers), mPeer(std::move(peer)), mName(std::move(name)) {}

bool Route::end() {
    std::vector<std::shared_ptr<Connection>> idle;  // closed without the lock
    {
        const std::lock_guard lock(mLock);
        if (mDead.exchange(true)) return false;
        idle.swap(mIdle);
    }
    for (const std::shared_ptr<Connection>& connection : idle)
        drop(connection);
    mOneways->close(*this);
    return true;
}

std::shared_ptr<Connection> Route::connect(ConnectionKind kind, binder_status_t* status) {
    *status = STATUS_DEAD_OBJECT;
    if (isDead()) return nullptr;
    ucred credentials{};
    android::base::unique_fd socket = mPeers.self().connect(mName, &credentials, status);
    if (socket < 0) return nullptr;
    Charge charge(mPeer->account(), Resource::kDescriptors, 1);
    if (!charge.isMade()) {
        *status = STATUS_FAILED_TRANSACTION;
        return nullptr;
    }
    auto connection = std::make_shared<Connection>(std::move(socket), kind, credentials,
                                                   mPeer->account(), std::move(charge));
    mPeer->add(connection);
    mPeers.routeServed(shared_from_this());
    return connection;
}

std::shared_ptr<Connection> Route::take(binder_status_t* status) {
    {
        const std::lock_guard lock(mLock);
        if (!mIdle.empty()) {
            std::shared_ptr<Connection> connection = std::move(mIdle.back());
            mIdle.pop_back();
            return connection;
        }
    }
    return connect(ConnectionKind::kCall, status);
}

void Route::giveBack(std::shared_ptr<Connection> connection) {
    {
        const std::lock_guard lock(mLock);
        if (!isDead() && mIdle.size() < kMostIdle) {
            mIdle.push_back(std::move(connection));
            return;
        }
    }
    drop(connection);
}

}  // namespace binder
