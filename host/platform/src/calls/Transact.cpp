#include "calls/Transact.h"

#include <utility>

#include "base/Log.h"
#include "calls/Marshal.h"
#include "calls/Peers.h"
#include "calls/Proxy.h"
#include "calls/Serve.h"
#include "parcel/Status.h"

namespace binder {
namespace {

/**
 * Waits for the reply to the call that was sent, serving the calls that the peer makes meanwhile.
 * False when the line is of no more use.
 */
bool awaitReply(const Line& line, Incoming* reply) {
    while (line.connection->receive(reply, Connection::Wait::kUntilThere) ==
           Connection::Received::kMessage) {
        if (reply->header.kind == MessageKind::kReply) return true;
        if (!serveCall(line, std::move(*reply))) return false;
    }
    return false;
}

/** One exchange over the line; *broken when that is of no more use. */
binder_status_t exchange(Peers& peers, const Line& line, Packed& packed,
                         std::unique_ptr<AParcel>* out, bool* broken) {
    const Connection::Sent sent = line.connection->sendWaiting(packed.message());
    *broken = sent == Connection::Sent::kBroken;
    if (*broken) return peers.connectionBroke(*line.peer);
    if (sent != Connection::Sent::kDone) return STATUS_FAILED_TRANSACTION;
    packed.sent();
    Incoming reply;
    *broken = !awaitReply(line, &reply);
    if (*broken) return peers.connectionBroke(*line.peer);
    switch (unpack(line.peer, &reply)) {
        case Unpacked::kMalformed:
            *broken = !line.connection->malformed("bad object table");
            return STATUS_FAILED_TRANSACTION;
        case Unpacked::kIncomplete:
            log(ANDROID_LOG_ERROR, "A reply is lost: no descriptors left");
            return STATUS_FAILED_TRANSACTION;
        case Unpacked::kStale:
            log(ANDROID_LOG_WARN, "A reply is lost: an object in it is gone");
            return STATUS_DEAD_OBJECT;
        case Unpacked::kWhole:
            break;
    }
    *out = std::move(reply.parcel);
    return knownStatus(static_cast<binder_status_t>(reply.header.code));
}

binder_status_t callOneway(Peers& peers, Proxy& proxy, Packed& packed) {
    Header& header = packed.message().header;
    header.kind = MessageKind::kOneway;
    // The same bounds as the receiver's.
    if (checkHeader(header, ConnectionKind::kOneway) != nullptr) return STATUS_FAILED_TRANSACTION;
    proxy.noteOneway();
    binder_status_t status = STATUS_OK;
    Peer& owner = *proxy.owner();
    const Connection::Sent sent = owner.onewayLink().send(packed.message(), &status);
    if (sent == Connection::Sent::kDone) packed.sent();
    if (sent == Connection::Sent::kBroken) return peers.connectionBroke(owner);
    return status;
}

binder_status_t callRemotely(Proxy& proxy, transaction_code_t code, const AParcel& in,
                             binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    Peers* const peers = Peers::get();
    if (peers == nullptr) {
        log(ANDROID_LOG_ERROR, "Binder cannot be used in a forked process");
        return STATUS_INVALID_OPERATION;
    }
    const std::shared_ptr<Peer>& owner = proxy.owner();
    if (proxy.isDead()) return STATUS_DEAD_OBJECT;
    Packed packed(*owner, &in);
    if (packed.status() != STATUS_OK) return packed.status();
    Header& header = packed.message().header;
    header.code = code;
    header.flags = flags;
    header.object = proxy.id();

    if ((flags & FLAG_ONEWAY) != 0) {
        *out = std::make_unique<AParcel>();
        return callOneway(*peers, proxy, packed);
    }
    header.kind = MessageKind::kCall;
    bool broken = false;
    if (const Line* const nested = ServedCall::waitingPeer(*owner); nested != nullptr) {
        const binder_status_t status = exchange(*peers, *nested, packed, out, &broken);
        if (broken) nested->connection->shutdown();
        return status;
    }
    binder_status_t status = STATUS_OK;
    const Line line{.peer = owner, .connection = owner->takeConnection(&status)};
    if (line.connection == nullptr) return status;
    status = exchange(*peers, line, packed, out, &broken);
    if (broken) {
        owner->removeCall(line.connection);
    } else {
        owner->returnConnection(line.connection);
    }
    return status;
}

}  // namespace

binder_status_t transact(AIBinder& binder, transaction_code_t code, const AParcel& in,
                         binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    if (LocalObject* const local = localOf(&binder); local != nullptr) {
        *out = std::make_unique<AParcel>();
        return serveLocally(*local, code, in, out->get());
    }
    const auto provided = static_cast<uint32_t>(binder.stability());
    const auto required = static_cast<uint32_t>(kOwnStability);
    if (isUserCode(code) && (provided & required) != required) {
        log(ANDROID_LOG_ERROR, "Refusing a call: the object's stability does not suffice");
        return STATUS_BAD_TYPE;
    }
    return callRemotely(proxyOf(binder), code, in, flags, out);
}

}  // namespace binder
