#include "calls/OnewayInbox.h"

#include <utility>

#include "base/Log.h"
#include "base/Worker.h"
#include "calls/Exports.h"
#include "calls/Marshal.h"

namespace binder {
namespace {

// Until others have their turn.
constexpr int kMessagesPerTurn = 64;
// A new connection may be here before the end of the last one has been seen.
constexpr int kMaxConnections = 2;

}  // namespace

OnewayInbox::OnewayInbox(Line line, ToServe toServe)
    : mLine(std::move(line)),
      mToServe(std::move(toServe)),
      mReport(std::make_shared<OnewayReport>(mLine.connection)) {
    ++mLine.peer->oneways;
}

OnewayInbox::~OnewayInbox() {
    --mLine.peer->oneways;
}

void OnewayInbox::serve(Line line, const ToServe& toServe) {
    const auto inbox = std::make_shared<OnewayInbox>(std::move(line), toServe);
    const Line& own = inbox->mLine;
    if (own.peer->oneways > kMaxConnections) {
        own.connection->malformed("too many for one-way calls");
    } else if (own.connection->receiveWith([inbox] { inbox->receive(); })) {
        return;
    }
    own.peer->remove(own.connection);
}

void OnewayInbox::receive() {
    const std::shared_ptr<OnewayInbox> self = shared_from_this();
    for (int i = 0; i < kMessagesPerTurn; ++i) {
        Incoming message;
        const Received received = mLine.connection->receive(&message, {});
        if (received == Received::kNotYet) return;
        if (received != Received::kMessage || !take(std::move(message))) {
            end();
            return;
        }
    }
}

void OnewayInbox::end() {
    mLine.connection->stopReceiving();
    mLine.connection->shutdown();
    mLine.peer->remove(mLine.connection);
    Worker::get().release(std::exchange(mHeld, {}));
}

bool OnewayInbox::take(Incoming message) {
    switch (message.header.kind) {
        case MessageKind::kHold:
            hold(message.header.object);
            return true;
        case MessageKind::kOneway:
            return takeCall(std::move(message));
        case MessageKind::kDone:
            done(message.header.object);
            return true;
        default:
            return mLine.connection->malformed("a report of calls that were not made");
    }
}

bool OnewayInbox::takeCall(Incoming message) {
    const Connection& connection = *mLine.connection;
    const Header& header = message.header;
    if (!mReport->waiting().add(OnewayCost::of(header))) {
        return connection.malformed("more one-way calls than may wait");
    }
    auto call = std::make_unique<OnewayCall>(mReport, mLine.peer->account(), connection.peerUid(),
                                             header);
    if (!call->bytes.isMade() || !call->descriptors.isMade()) {
        return connection.malformed("more one-way calls than may wait");
    }
    const Unpacked unpacked = unpack(*mLine.peer, &message);
    call->in = std::move(message.parcel);
    StrongBinder target;
    if (const auto held = mHeld.find(header.object); held != mHeld.end()) {
        target = share(*held->second.object);
    } else if (header.object == kServiceManagerObject) {
        target = Exports::get().find(header.object);
    }
    if (unpacked == Unpacked::kWhole && target != nullptr) {
        const LocalObject& object = *localOf(target.get());
        if (OnewayQueues::get().add(object, std::move(*call))) mToServe(std::move(target));
        return true;
    }
    // What came with it may not be released on this thread.
    Worker::get().release(std::move(call));
    if (unpacked == Unpacked::kMalformed) return connection.malformed("bad object table");
    complain(ANDROID_LOG_WARN, "Dropping a one-way call of process %d: %s", connection.peerPid(),
             target == nullptr                   ? "its object is gone"
             : unpacked == Unpacked::kIncomplete ? "no descriptors left"
                                                 : "an object in it is gone");
    return true;
}

void OnewayInbox::hold(uint64_t id) {
    const auto [held, isNew] = mHeld.try_emplace(id);
    if (isNew) held->second.object = Exports::get().find(id);
    if (held->second.object == nullptr) {
        mHeld.erase(held);
    } else {
        ++held->second.proxies;
    }
}

void OnewayInbox::done(uint64_t id) {
    const auto held = mHeld.find(id);
    if (held == mHeld.end() || --held->second.proxies > 0) return;
    Worker::get().release(std::move(held->second.object));
    mHeld.erase(held);
}

}  // namespace binder
