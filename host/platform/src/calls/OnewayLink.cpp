#include "calls/OnewayLink.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "calls/Proxy.h"
#include "calls/Route.h"

namespace binder {
namespace {

// What a call takes beside its data.
constexpr uint32_t kCallOverhead = 128;
// What may wait. The other side reports what it has served in portions: what is left unreported,
// and that a largest call must fit beside, is less than what is added to one here.
constexpr OnewayCost kMost{.bytes = kMaxOneway + 32 * 1024, .descriptors = kMaxDescriptors};
// Calls that wait here, and what is said behind them.
constexpr size_t kMaxKept = 2 * kMaxOneway + 1024 * 1024;

}  // namespace

OnewayCost OnewayCost::of(const Header& header) {
    const uint32_t offsets = header.objectCount * static_cast<uint32_t>(kOffsetSize);
    return {.bytes = header.dataSize + offsets + kCallOverhead, .descriptors = header.objectCount};
}

bool OnewayAccount::add(const OnewayCost& cost) {
    const std::lock_guard lock(mLock);
    if (cost.bytes > kMost.bytes - mWaiting.bytes ||
        cost.descriptors > kMost.descriptors - mWaiting.descriptors) {
        return false;
    }
    mWaiting.bytes += cost.bytes;
    mWaiting.descriptors += cost.descriptors;
    return true;
}

void OnewayAccount::remove(const OnewayCost& cost) {
    const std::lock_guard lock(mLock);
    // The other side may report what it likes.
    mWaiting.bytes -= std::min(cost.bytes, mWaiting.bytes);
    mWaiting.descriptors -= std::min(cost.descriptors, mWaiting.descriptors);
}

binder_status_t OnewayLink::send(Route& route, Proxy& proxy, const Outgoing& message) {
    const OnewayCost cost = OnewayCost::of(message.header);
    const std::lock_guard lock(mLock);
    if (mLine.connection == nullptr) {
        const binder_status_t status = connectLocked(route);
        if (status != STATUS_OK) return status;
    }
    if (!mLine.unserved->add(cost)) return STATUS_FAILED_TRANSACTION;
    Sent sent = Sent::kDone;
    if (proxy.end() != nullptr && !mLine.held.contains(&proxy)) {
        Outgoing hold;
        hold.header.kind = MessageKind::kHold;
        hold.header.object = proxy.id();
        hold.descriptors.push_back({proxy.end()->get(), proxy.end()});
        sent = mLine.connection->send(hold, kMaxKept);
        if (sent == Sent::kDone) mLine.held.insert(&proxy);
    }
    if (sent == Sent::kDone) sent = mLine.connection->send(message, kMaxKept);
    if (sent == Sent::kDone) return STATUS_OK;
    mLine.unserved->remove(cost);
    if (sent != Sent::kBroken) return STATUS_FAILED_TRANSACTION;
    dropLocked(route);
    return STATUS_DEAD_OBJECT;
}

void OnewayLink::done(Route& route, Proxy& proxy) {
    const std::lock_guard lock(mLock);
    if (mLine.held.erase(&proxy) == 0) return;
    Outgoing message;
    message.header.kind = MessageKind::kDone;
    message.header.object = proxy.id();
    if (mLine.connection->send(message, SIZE_MAX) != Sent::kDone) dropLocked(route);
}

binder_status_t OnewayLink::connectLocked(Route& route) {
    if (mIsClosed) return STATUS_DEAD_OBJECT;
    binder_status_t status = STATUS_OK;
    const std::shared_ptr<Connection> connection = route.connect(ConnectionKind::kOneway, &status);
    if (connection == nullptr) return status;
    mLine = {.connection = connection};
    const bool receives =
            connection->receiveWith([self = weak_from_this(), weakRoute = route.weak_from_this(),
                                     weak = std::weak_ptr(connection)] {
                const std::shared_ptr<OnewayLink> link = self.lock();
                const std::shared_ptr<Route> over = weakRoute.lock();
                const std::shared_ptr<Connection> from = weak.lock();
                if (link != nullptr && over != nullptr && from != nullptr)
                    link->receive(*over, from);
            });
    if (receives) return STATUS_OK;
    dropLocked(route);
    return STATUS_FAILED_TRANSACTION;
}

void OnewayLink::receive(Route& route, const std::shared_ptr<Connection>& connection) {
    Incoming message;
    const Received received = connection->receive(&message, {});
    if (received == Received::kNotYet) return;
    const std::lock_guard lock(mLock);
    if (mLine.connection != connection) return;
    if (received == Received::kMessage && message.header.kind == MessageKind::kServed) {
        mLine.unserved->remove({.bytes = message.header.count,
                                .descriptors = static_cast<uint32_t>(message.header.object)});
        return;
    }
    if (received == Received::kMessage)
        connection->malformed("a one-way call against the direction");
    dropLocked(route);
}

void OnewayLink::dropLocked(Route& route) {
    const Line line = std::exchange(mLine, Line{});
    line.connection->stopReceiving();
    line.connection->shutdown();
    route.drop(line.connection);
}

void OnewayLink::close(Route& route) {
    const std::lock_guard lock(mLock);
    mIsClosed = true;
    if (mLine.connection != nullptr) dropLocked(route);
}

}  // namespace binder
