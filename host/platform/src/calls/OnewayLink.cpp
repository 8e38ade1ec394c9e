#include "calls/OnewayLink.h"

#include <algorithm>
#include <utility>

namespace binder {
namespace {

// What a call takes beside its data.
constexpr uint32_t kCallOverhead = 128;
// Served calls are reported when they come to so much; what is left unreported, and that a largest
// call must fit beside, is less than what kMaxOnewayCost adds to one.
constexpr uint32_t kReportBytes = 16 * 1024;
// Calls, and returns of references behind them.
constexpr size_t kMaxKept = 2 * kMaxOneway + 1024 * 1024;

void subtract(const OnewayCost& cost, OnewayCost* from) {
    from->bytes -= std::min(cost.bytes, from->bytes);
    from->descriptors -= std::min(cost.descriptors, from->descriptors);
}

/** False when the sum would be more than the limit; then nothing is added. */
bool addWithin(const OnewayCost& limit, const OnewayCost& cost, OnewayCost* to) {
    if (cost.bytes > limit.bytes - to->bytes ||
        cost.descriptors > limit.descriptors - to->descriptors) {
        return false;
    }
    to->bytes += cost.bytes;
    to->descriptors += cost.descriptors;
    return true;
}

}  // namespace

OnewayCost OnewayCost::of(const Header& header) {
    const uint32_t offsets = header.objectCount * static_cast<uint32_t>(sizeof(uint64_t));
    return {.bytes = header.dataSize + offsets + kCallOverhead,
            .descriptors = header.descriptorCount};
}

Connection::Sent OnewayLink::send(const Outgoing& message, binder_status_t* status) {
    *status = STATUS_FAILED_TRANSACTION;
    const OnewayCost cost = OnewayCost::of(message.header);
    const std::lock_guard lock(mLock);
    if (mConnection == nullptr && !connectLocked(status)) return Connection::Sent::kRefused;
    if (!addWithin(kMaxOnewayCost, cost, &mUnserved)) return Connection::Sent::kNoRoom;
    const Connection::Sent sent = mConnection->send(message, kMaxKept);
    if (sent == Connection::Sent::kDone) {
        *status = STATUS_OK;
    } else if (sent == Connection::Sent::kBroken) {
        dropLocked();
    } else {
        subtract(cost, &mUnserved);
    }
    return sent;
}

bool OnewayLink::sendBehind(const Header& message) {
    const std::lock_guard lock(mLock);
    return mConnection != nullptr &&
           mConnection->send({.header = message, .data = {}, .table = {}, .descriptors = {}},
                             kMaxKept) == Connection::Sent::kDone;
}

bool OnewayLink::connectLocked(binder_status_t* status) {
    *status = STATUS_DEAD_OBJECT;
    if (mIsClosed) return false;
    const std::shared_ptr<Connection> connection =
            mSelf.connect(mPeerName, ConnectionKind::kOneway, status);
    if (connection == nullptr) return false;
    const bool receives =
            connection->receiveWith([self = weak_from_this(), weak = std::weak_ptr(connection)] {
                const std::shared_ptr<OnewayLink> link = self.lock();
                const std::shared_ptr<Connection> from = weak.lock();
                if (link != nullptr && from != nullptr) link->receive(from);
            });
    *status = STATUS_FAILED_TRANSACTION;
    if (!receives) return false;
    mConnection = connection;
    mUnserved = {};
    return true;
}

void OnewayLink::receive(const std::shared_ptr<Connection>& connection) {
    Incoming message;
    switch (connection->receive(&message, Connection::Wait::kNo)) {
        case Connection::Received::kNotYet:
            return;
        case Connection::Received::kMessage:
            break;
        default:
            drop(*connection);
            return;
    }
    if (message.header.kind != MessageKind::kServed) {
        connection->malformed("a one-way call against the direction");
        drop(*connection);
        return;
    }
    const std::lock_guard lock(mLock);
    if (mConnection != connection) return;
    subtract({.bytes = static_cast<uint32_t>(message.header.count),
              .descriptors = static_cast<uint32_t>(message.header.object)},
             &mUnserved);
}

void OnewayLink::dropLocked() {
    mConnection->stopReceiving();
    mConnection->shutdown();
    mConnection.reset();
}

void OnewayLink::drop(const Connection& connection) {
    const std::lock_guard lock(mLock);
    if (mConnection.get() == &connection) dropLocked();
}

void OnewayLink::close() {
    const std::lock_guard lock(mLock);
    mIsClosed = true;
    if (mConnection != nullptr) dropLocked();
}

bool OnewayAccount::add(const OnewayCost& cost) {
    const std::lock_guard lock(mLock);
    return addWithin(kMaxOnewayCost, cost, &mWaiting);
}

void OnewayAccount::served(const OnewayCost& cost, Connection& connection) {
    OnewayCost report;
    {
        const std::lock_guard lock(mLock);
        subtract(cost, &mWaiting);
        mUnreported.bytes += cost.bytes;
        mUnreported.descriptors += cost.descriptors;
        if (mUnreported.bytes < kReportBytes && mUnreported.descriptors == 0) return;
        report = std::exchange(mUnreported, {});
    }
    Outgoing message;
    message.header.kind = MessageKind::kServed;
    message.header.count = report.bytes;
    message.header.object = report.descriptors;
    // A sender that does not read what it is told cannot send any more.
    if (connection.send(message, kReportBytes) != Connection::Sent::kDone) connection.shutdown();
}

}  // namespace binder
