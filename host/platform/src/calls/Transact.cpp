#include "calls/Transact.h"

#include <array>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

#include "base/Log.h"
#include "calls/Marshal.h"
#include "calls/Peers.h"
#include "calls/Proxy.h"
#include "calls/Serve.h"
#include "parcel/Status.h"

namespace binder {
namespace {

using android::base::unique_fd;
using Deadline = std::optional<Wait::Clock::time_point>;

/** A line is of no more use. */
constexpr binder_status_t kBroken = STATUS_DEAD_OBJECT;

/** Serves the calls that the peer makes until its reply comes. STATUS_OK, or why none does. */
binder_status_t awaitReply(const Line& line, const Deadline& deadline, Incoming* reply) {
    const Wait wait{.kind = Wait::Kind::kUntilThere, .deadline = deadline};
    for (;;) {
        const Received received = line.connection->receive(reply, wait);
        if (received == Received::kNotYet) return STATUS_TIMED_OUT;
        if (received != Received::kMessage) return kBroken;
        if (reply->header.kind == MessageKind::kReply) return STATUS_OK;
        const bool isWell = reply->header.kind == MessageKind::kLine
                                    ? serveHandedLine(line, std::move(*reply))
                                    : serveCall(line, std::move(*reply));
        if (!isWell) return kBroken;
    }
}

/** One exchange over the line. *broken when that is of no more use. */
binder_status_t exchange(Peers& peers, Route& route, const Line& line, const Outgoing& call,
                         const Deadline& deadline, std::unique_ptr<AParcel>* out, bool* broken) {
    const Sent sent = line.connection->sendWaiting(call);
    *broken = sent == Sent::kBroken;
    if (*broken) return peers.connectionBroke(route, line.connection.get());
    if (sent != Sent::kDone) return STATUS_FAILED_TRANSACTION;
    Incoming reply;
    const binder_status_t status = awaitReply(line, deadline, &reply);
    *broken = status != STATUS_OK;
    if (*broken && status == kBroken) return peers.connectionBroke(route, line.connection.get());
    if (*broken) return status;
    switch (unpack(*line.peer, &reply)) {
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

/**
 * A line to a thread of the peer that waits for this one, through the process that called this one:
 * it gets the other end handed up. No connection when that is impossible.
 */
Line handUp(const std::shared_ptr<Peer>& peer, const Line& over) {
    Line line{.peer = peer, .connection = nullptr};
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return line;
    unique_fd own(ends[0]);
    const unique_fd theirs(ends[1]);
    Outgoing message;
    message.header.kind = MessageKind::kLine;
    message.header.object = static_cast<uint64_t>(peer->pid());
    message.descriptors.push_back({theirs.get()});
    if (over.connection->sendWaiting(message) != Sent::kDone) return line;
    const ucred credentials{.pid = peer->pid(), .uid = getuid(), .gid = getgid()};
    line.connection = std::make_shared<Connection>(std::move(own), ConnectionKind::kCall,
                                                   credentials, peer->account());
    peer->add(line.connection);
    return line;
}

binder_status_t callAndWait(Peers& peers, Route& route, const Outgoing& call,
                            const Deadline& deadline, std::unique_ptr<AParcel>* out) {
    bool broken = false;
    binder_status_t status = STATUS_OK;
    const ServedCall::Way way = ServedCall::wayTo(route.peer()->pid());
    if (way.isDirect) {
        status = exchange(peers, route, *way.line, call, deadline, out, &broken);
        if (broken) way.line->connection->shutdown();
        return status;
    }
    if (way.line != nullptr) {
        const Line line = handUp(route.peer(), *way.line);
        if (line.connection == nullptr) return STATUS_FAILED_TRANSACTION;
        status = exchange(peers, route, line, call, deadline, out, &broken);
        route.drop(line.connection);
        return status;
    }
    const Line line{.peer = route.peer(), .connection = route.take(&status)};
    if (line.connection == nullptr)
        return status == kBroken ? peers.connectionBroke(route, nullptr) : status;
    status = exchange(peers, route, line, call, deadline, out, &broken);
    if (broken) {
        route.drop(line.connection);
    } else {
        route.giveBack(line.connection);
    }
    return status;
}

binder_status_t callRemotely(Proxy& proxy, transaction_code_t code, const AParcel& in,
                             binder_flags_t flags, const Deadline& deadline,
                             std::unique_ptr<AParcel>* out) {
    Peers* const peers = Peers::get();
    if (peers == nullptr) {
        log(ANDROID_LOG_ERROR, "Binder cannot be used in a forked process");
        return STATUS_INVALID_OPERATION;
    }
    if (proxy.isDead()) return STATUS_DEAD_OBJECT;
    Route& route = *proxy.route();
    const bool isOneway = (flags & FLAG_ONEWAY) != 0;
    Packed packed(&in, isOneway ? std::vector<pid_t>() : ServedCall::waiting());
    if (packed.status() != STATUS_OK) return packed.status();
    Header& header = packed.message().header;
    header.kind = isOneway ? MessageKind::kOneway : MessageKind::kCall;
    header.code = code;
    header.object = proxy.id();
    if (!isOneway) return callAndWait(*peers, route, packed.message(), deadline, out);

    *out = std::make_unique<AParcel>();
    // The same bounds as the receiver's.
    if (checkHeader(header, ConnectionKind::kOneway) != nullptr) return STATUS_FAILED_TRANSACTION;
    proxy.noteOneway();
    const binder_status_t status = route.oneways().send(route, proxy, packed.message());
    return status == kBroken ? peers->connectionBroke(route, nullptr) : status;
}

}  // namespace

binder_status_t transact(AIBinder& binder, transaction_code_t code, const AParcel& in,
                         binder_flags_t flags, std::unique_ptr<AParcel>* out,
                         const Deadline& deadline) {
    if (LocalObject* const local = localOf(&binder); local != nullptr) {
        *out = std::make_unique<AParcel>();
        return serveLocally(*local, code, in, out->get());
    }
    return callRemotely(proxyOf(binder), code, in, flags, deadline, out);
}

}  // namespace binder
