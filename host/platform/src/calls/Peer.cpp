#include "calls/Peer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include <poll.h>

namespace binder {
namespace {

// One from either side.
constexpr size_t kMaxControls = 2;
// Beyond it the peer is given up, since its counts can no longer be kept.
constexpr size_t kMaxControlKept = 16 * 1024 * 1024;
// A process that ends closes its sockets one by one: what may pass until the control connection is.
constexpr std::chrono::milliseconds kEndOfProcess{200};
// Idle connections that stay, and how often the others are looked through.
constexpr size_t kIdleThatStay = 4;
constexpr std::chrono::seconds kTrimInterval{3};

PeerNumber nextNumber() {
    static std::atomic<PeerNumber> next{kSelf + 1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

Peer::Peer(const Endpoint& self, std::string name)
    : mSelf(self),
      mName(std::move(name)),
      mNumber(nextNumber()),
      mUnfinished(std::make_shared<UnfinishedDescriptors>()),
      mOnewayLink(std::make_shared<OnewayLink>(self, mName)) {}

bool Peer::end() {
    std::vector<std::shared_ptr<Connection>> controls;
    std::vector<std::shared_ptr<Connection>> idle;
    std::unordered_set<std::shared_ptr<Connection>> calls;
    {
        const std::lock_guard lock(mLock);
        if (mDead.exchange(true)) return false;
        controls.swap(mControls);
        idle.swap(mIdle);
        calls.swap(mCalls);
    }
    for (const std::shared_ptr<Connection>& control : controls) {
        control->stopReceiving();
        control->shutdown();
    }
    for (const std::shared_ptr<Connection>& call : calls)
        call->shutdown();
    mOnewayLink->close();
    return true;
}

bool Peer::isEnding() {
    std::shared_ptr<Connection> control;
    {
        const std::lock_guard lock(mLock);
        if (mControls.empty()) return true;
        control = mControls.front();
    }
    pollfd end{.fd = control->fd(), .events = POLLRDHUP, .revents = 0};
    int ended;
    do {
        ended = poll(&end, 1, static_cast<int>(kEndOfProcess.count()));
    } while (ended < 0 && errno == EINTR);
    return ended != 0;
}

bool Peer::addControl(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    if (isDead() || mControls.size() == kMaxControls) return false;
    mControls.push_back(connection);
    return true;
}

bool Peer::addCall(const std::shared_ptr<Connection>& connection) {
    connection->countUnfinished(mUnfinished);
    const std::lock_guard lock(mLock);
    if (isDead() || mCalls.size() >= shareOfDescriptors(2)) return false;
    mCalls.insert(connection);
    return true;
}

void Peer::removeCall(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    mCalls.erase(connection);
}

void Peer::sendControl(const Header& message, std::string_view name) {
    std::shared_ptr<Connection> control;
    {
        const std::lock_guard lock(mLock);
        if (mControls.empty()) return;
        control = mControls.front();  // always the same one: that keeps the order
    }
    Outgoing outgoing{.header = message,
                      .data = {},
                      .table = std::vector<uint8_t>(name.begin(), name.end()),
                      .descriptors = {}};
    outgoing.header.tableSize = static_cast<uint32_t>(name.size());
    if (control->send(outgoing, kMaxControlKept) != Connection::Sent::kDone) control->shutdown();
}

std::shared_ptr<Connection> Peer::takeConnection(binder_status_t* status) {
    {
        const std::lock_guard lock(mLock);
        if (!mIdle.empty()) {
            std::shared_ptr<Connection> connection = std::move(mIdle.back());
            mIdle.pop_back();
            mFewestIdle = std::min(mFewestIdle, mIdle.size());
            return connection;
        }
    }
    *status = STATUS_DEAD_OBJECT;
    if (isDead()) return nullptr;
    std::shared_ptr<Connection> connection = mSelf.connect(mName, ConnectionKind::kCall, status);
    if (connection == nullptr || addCall(connection)) return connection;
    *status = isDead() ? STATUS_DEAD_OBJECT : STATUS_FAILED_TRANSACTION;
    return nullptr;
}

void Peer::returnConnection(std::shared_ptr<Connection> connection) {
    {
        const std::lock_guard lock(mLock);
        if (isDead()) return;
        mIdle.push_back(std::move(connection));
        if (mIdle.size() <= kIdleThatStay || std::exchange(mTrims, true)) return;
        mFewestIdle = mIdle.size();
    }
    trimIdleLater();
}

void Peer::trimIdleLater() {
    IoThread::get().after(kTrimInterval, [weak = weak_from_this()] {
        if (const std::shared_ptr<Peer> peer = weak.lock()) peer->trimIdle();
    });
}

void Peer::trimIdle() {
    std::vector<std::shared_ptr<Connection>> trimmed;  // closed without the lock
    {
        const std::lock_guard lock(mLock);
        // So many have not been needed since the last time, and they stand at the front.
        const size_t unneeded = std::min(mFewestIdle, mIdle.size());
        const size_t most = mIdle.size() - std::min(mIdle.size(), kIdleThatStay);
        const auto last = mIdle.begin() + static_cast<ptrdiff_t>(std::min(unneeded, most));
        trimmed.assign(std::make_move_iterator(mIdle.begin()), std::make_move_iterator(last));
        mIdle.erase(mIdle.begin(), last);
        for (const std::shared_ptr<Connection>& connection : trimmed)
            mCalls.erase(connection);
        mFewestIdle = mIdle.size();
        mTrims = mIdle.size() > kIdleThatStay;
        if (!mTrims) return;
    }
    trimIdleLater();
}

}  // namespace binder
