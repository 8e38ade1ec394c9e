#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>

#include "Endpoint.h"
#include "Log.h"
#include "Marshal.h"
#include "Observe.h"
#include "Serve.h"
#include "Status.h"

namespace binder {
namespace {

/**
 * Waits for the reply to the call that was sent, serving the calls that the peer makes meanwhile.
 * False when the connection is of no more use.
 */
bool awaitReply(const std::shared_ptr<Connection>& connection, Incoming* reply) {
    for (;;) {
        switch (connection->receive(reply, Connection::Wait::kUntilThere)) {
            case Connection::Received::kMessage:
                break;
            case Connection::Received::kMalformed:
                log(ANDROID_LOG_WARN, "Ending a connection to process %d: %s",
                    connection->peerPid(), connection->fault());
                return false;
            default:
                return false;
        }
        if (reply->header.kind == MessageKind::kReply) return true;
        if (!serveCall(connection, std::move(*reply))) return false;
    }
}

/** One exchange over the connection; *broken when the connection is of no more use. */
binder_status_t exchange(const std::shared_ptr<Connection>& connection, Packed& packed,
                         std::unique_ptr<AParcel>* out, bool* broken) {
    switch (connection->sendWaiting(packed.message())) {
        case Connection::Sent::kDone:
            packed.sent();
            break;
        case Connection::Sent::kBroken:
            *broken = true;
            return connection->peer()->connectionBroke();
        default:
            return STATUS_FAILED_TRANSACTION;
    }
    Incoming reply;
    *broken = !awaitReply(connection, &reply);
    if (*broken) return connection->peer()->connectionBroke();
    switch (unpack(connection->peer(), &reply)) {
        case Unpacked::kMalformed:
            log(ANDROID_LOG_WARN, "Ending a connection to process %d: bad object table",
                connection->peerPid());
            *broken = true;
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

binder_status_t callRemotely(const ProxyObject& proxy, transaction_code_t code, const AParcel& in,
                             binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    const std::shared_ptr<Peer>& peer = proxy.peer();
    if (Endpoint::get() == nullptr) {
        log(ANDROID_LOG_ERROR, "Binder cannot be used in a forked process");
        return STATUS_INVALID_OPERATION;
    }
    if (proxy.isDead()) return STATUS_DEAD_OBJECT;
    Packed packed(*peer, &in);
    if (packed.status() != STATUS_OK) return packed.status();
    Header& header = packed.message().header;
    header.code = code;
    header.flags = flags;
    header.object = proxy.id();

    if ((flags & FLAG_ONEWAY) != 0) {
        header.kind = MessageKind::kOneway;
        const binder_status_t status = peer->sendOneway(packed.message());
        if (status == STATUS_OK) packed.sent();
        *out = std::make_unique<AParcel>();
        return status;
    }
    header.kind = MessageKind::kCall;
    bool broken = false;
    if (Connection* const nested = ServedCall::waitingPeer(*peer); nested != nullptr) {
        const binder_status_t status = exchange(nested->shared_from_this(), packed, out, &broken);
        if (broken) nested->shutdown();
        return status;
    }
    binder_status_t status = STATUS_OK;
    std::shared_ptr<Connection> connection = peer->takeConnection(&status);
    if (connection == nullptr) return status;
    status = exchange(connection, packed, out, &broken);
    if (broken) {
        peer->removeData(connection);
    } else {
        peer->returnConnection(std::move(connection));
    }
    return status;
}

binder_status_t call(AIBinder& binder, transaction_code_t code, const AParcel& in,
                     binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    if (LocalObject* const local = binder.asLocal(); local != nullptr) {
        *out = std::make_unique<AParcel>();
        return serveLocally(*local, code, in, out->get());
    }
    return callRemotely(*binder.asProxy(), code, in, flags, out);
}

}  // namespace
}  // namespace binder

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    const AIBinder_Class* const clazz = binder->clazz();
    if (clazz == nullptr) {
        binder::log(ANDROID_LOG_ERROR, "A class must be associated before a binder is called");
        return STATUS_INVALID_OPERATION;
    }
    auto parcel = std::make_unique<AParcel>();
    parcel->setTarget(binder);
    if (clazz->hasTokenHeader) {
        const binder_status_t status = parcel->writeInterfaceToken(clazz->descriptor.c_str());
        if (status != STATUS_OK) return status;
    }
    *in = parcel.release();
    return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    const std::unique_ptr<AParcel> parcel(std::exchange(*in, nullptr));
    if (binder == nullptr || parcel == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
    *out = nullptr;
    if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
        return STATUS_UNKNOWN_TRANSACTION;
    }
    if ((flags & ~binder_flags_t{FLAG_ONEWAY}) != 0) return STATUS_BAD_VALUE;
    if (parcel->target() != binder) return STATUS_BAD_VALUE;

    std::unique_ptr<AParcel> reply;
    const binder_status_t status = binder::observed(
            false, *binder, code, *parcel,
            [&] { return (flags & FLAG_ONEWAY) != 0 ? nullptr : reply.get(); },
            [&] { return binder::call(*binder, code, *parcel, flags, &reply); });
    if (status == STATUS_OK) *out = reply.release();
    return status;
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    std::unique_ptr<AParcel> reply;
    return binder::call(*binder, binder::kPing, AParcel(), 0, &reply);
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (const binder::LocalObject* const local = binder->asLocal(); local != nullptr) {
        if (local->clazz()->onDump == nullptr) return STATUS_OK;
        return binder::knownStatus(local->clazz()->onDump(binder, fd, args, numArgs));
    }
    std::vector<std::string> arguments;
    for (uint32_t i = 0; i < numArgs; ++i) {
        arguments.emplace_back(args[i] == nullptr ? "" : args[i]);
    }
    AParcel in;
    binder_status_t status = AParcel_writeParcelFileDescriptor(&in, fd);
    if (status == STATUS_OK) status = ndk::AParcel_writeData(&in, arguments);
    std::unique_ptr<AParcel> reply;
    return status != STATUS_OK ? status : binder::call(*binder, binder::kDump, in, 0, &reply);
}
