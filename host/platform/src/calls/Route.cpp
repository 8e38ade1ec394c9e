#include "calls/Route.h"

#include <chrono>
#include <iterator>
#include <utility>

#include "calls/Peers.h"

namespace binder {
namespace {

// Idle connections that stay, and when the others are closed.
constexpr size_t kIdleThatStay = 4;
constexpr std::chrono::seconds kTrimAfter{3};

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
        if (isDead()) return;
        mIdle.push_back(std::move(connection));
        if (mIdle.size() <= kIdleThatStay || std::exchange(mTrims, true)) return;
    }
    IoThread::get().after(kTrimAfter, [weak = weak_from_this()] {
        if (const std::shared_ptr<Route> route = weak.lock()) route->trim();
    });
}

void Route::trim() {
    std::vector<std::shared_ptr<Connection>> trimmed;  // closed without the lock
    {
        const std::lock_guard lock(mLock);
        mTrims = false;
        if (mIdle.size() <= kIdleThatStay) return;
        const auto last = mIdle.end() - kIdleThatStay;
        trimmed.assign(std::make_move_iterator(mIdle.begin()), std::make_move_iterator(last));
        mIdle.erase(mIdle.begin(), last);
    }
    for (const std::shared_ptr<Connection>& connection : trimmed)
        drop(connection);
}

}  // namespace binder
