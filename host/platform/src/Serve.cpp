#include "Serve.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>

#include "Exports.h"
#include "Log.h"
#include "Marshal.h"
#include "Observe.h"
#include "Status.h"
#include "ThreadPool.h"

namespace binder {
namespace {

// The largest reply: a caller reads one before it calls again.
constexpr size_t kMaxReplyKept = sizeof(Header) + 2 * kMaxTransaction;

thread_local const ServedCall* gServedCall = nullptr;

bool isUserCode(transaction_code_t code) {
    return code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION;
}

std::vector<const char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<const char*> pointers;
    pointers.reserve(texts.size());
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());
    return pointers;
}

binder_status_t dump(LocalObject& object, const AParcel& in) {
    ndk::ScopedFileDescriptor fd;
    std::vector<std::string> arguments;
    binder_status_t status = ndk::AParcel_readData(&in, &fd);
    if (status == STATUS_OK) status = ndk::AParcel_readData(&in, &arguments);
    if (status != STATUS_OK || object.clazz()->onDump == nullptr) return status;
    std::vector<const char*> pointers = pointersTo(arguments);
    return object.clazz()->onDump(&object, fd.get(), pointers.data(),
                                  static_cast<uint32_t>(pointers.size()));
}

binder_status_t shellCommand(LocalObject& object, const AParcel& in) {
    if (object.clazz()->onShellCommand == nullptr) return STATUS_UNKNOWN_TRANSACTION;
    std::vector<ndk::ScopedFileDescriptor> streams;
    std::vector<std::string> arguments;
    binder_status_t status = ndk::AParcel_readData(&in, &streams);
    if (status == STATUS_OK) status = ndk::AParcel_readData(&in, &arguments);
    if (status != STATUS_OK) return status;
    if (streams.size() != 3) return STATUS_BAD_VALUE;
    std::vector<const char*> pointers = pointersTo(arguments);
    return object.clazz()->onShellCommand(&object, streams[0].get(), streams[1].get(),
                                          streams[2].get(), pointers.data(),
                                          static_cast<uint32_t>(pointers.size()));
}

bool malformed(const Connection& connection, const char* why) {
    log(ANDROID_LOG_WARN, "Ending a connection of process %d: %s", connection.peerPid(), why);
    return false;
}

/** The status of the call that the message is; leaves the reply's data in out. */
binder_status_t execute(const Header& header, const AParcel& in, AParcel* out) {
    const StrongBinder target = Exports::get().find(header.object);
    if (target == nullptr) {
        log(ANDROID_LOG_WARN, "Call of an object that is gone");
        return STATUS_DEAD_OBJECT;
    }
    return serveLocally(*target->asLocal(), header.code, in, out);
}

bool sendReply(Connection& connection, binder_status_t status, const AParcel& reply) {
    Packed packed(*connection.peer(), status == STATUS_OK ? &reply : nullptr);
    Header& header = packed.message().header;
    header.kind = MessageKind::kReply;
    header.code = static_cast<uint32_t>(status);
    if (packed.status() == STATUS_OK) {
        // A caller that does not read keeps no thread of ours: the rest follows when it does.
        switch (connection.send(packed.message(), kMaxReplyKept)) {
            case Connection::Sent::kDone:
                packed.sent();
                return true;
            case Connection::Sent::kBroken:
                return false;
            default:
                break;
        }
    }
    return status == STATUS_FAILED_TRANSACTION
                   ? false
                   : sendReply(connection, STATUS_FAILED_TRANSACTION, reply);
}

}  // namespace

ServedCall::ServedCall(Connection* connection, pid_t pid, uid_t uid)
    : connection(connection), pid(pid), uid(uid), outer(std::exchange(gServedCall, this)) {}

ServedCall::~ServedCall() {
    gServedCall = outer;
}

const ServedCall* ServedCall::current() {
    return gServedCall;
}

Connection* ServedCall::waitingPeer(const Peer& peer) {
    for (const ServedCall* call = gServedCall; call != nullptr; call = call->outer) {
        if (call->connection != nullptr && call->connection->peer().get() == &peer) {
            return call->connection;
        }
    }
    return nullptr;
}

binder_status_t serveLocally(LocalObject& object, transaction_code_t code, const AParcel& in,
                             AParcel* out) {
    in.setPosition(0);
    const AIBinder_Class& clazz = *object.clazz();
    binder_status_t status = STATUS_UNKNOWN_TRANSACTION;
    if (isUserCode(code)) {
        if (clazz.hasTokenHeader && in.checkInterfaceToken(clazz.descriptor.c_str()) != STATUS_OK) {
            return STATUS_BAD_TYPE;
        }
        status = observed(
                true, object, code, in, [out] { return out; },
                [&] { return clazz.onTransact(&object, code, &in, out); });
    } else if (code == kPing) {
        status = STATUS_OK;
    } else if (code == kInterface) {
        status = ndk::AParcel_writeData(out, clazz.descriptor);
    } else if (code == kDump) {
        status = dump(object, in);
    } else if (code == kShellCommand) {
        status = shellCommand(object, in);
    }
    out->setPosition(0);
    return knownStatus(status);
}

bool serveCall(const std::shared_ptr<Connection>& connection, Incoming message) {
    if (message.header.kind != MessageKind::kCall) {
        return malformed(*connection, "a reply to nothing");
    }
    AParcel reply;
    binder_status_t status = STATUS_FAILED_TRANSACTION;
    switch (unpack(connection->peer(), &message)) {
        case Unpacked::kMalformed:
            return malformed(*connection, "bad object table");
        case Unpacked::kIncomplete:
            log(ANDROID_LOG_ERROR, "Refusing a call: no descriptors left");
            break;
        case Unpacked::kStale:
            log(ANDROID_LOG_WARN, "Refusing a call: an object in it is gone");
            status = STATUS_DEAD_OBJECT;
            break;
        case Unpacked::kWhole: {
            const ServedCall call(connection.get(), connection->peerPid(), connection->peerUid());
            status = execute(message.header, *message.parcel, &reply);
            break;
        }
    }
    return sendReply(*connection, status, reply);
}

bool serveOneway(const std::shared_ptr<Connection>& connection, Incoming message) {
    const Unpacked unpacked = unpack(connection->peer(), &message);
    if (unpacked == Unpacked::kMalformed) return malformed(*connection, "bad object table");
    const StrongBinder target = Exports::get().find(message.header.object);
    bool parked = false;
    bool serves = false;
    if (target == nullptr || unpacked != Unpacked::kWhole) {
        log(ANDROID_LOG_WARN, "Dropping a one-way call of process %d: %s", connection->peerPid(),
            target == nullptr                   ? "its object is gone"
            : unpacked == Unpacked::kIncomplete ? "no descriptors left"
                                                : "an object in it is gone");
    } else {
        AsyncCall call{.in = std::move(message.parcel),
                       .code = message.header.code,
                       .flags = message.header.flags,
                       .callerUid = connection->peerUid()};
        serves = target->asLocal()->queueAsync(std::move(call), connection, &parked);
    }
    Exports::get().onewayArrived(*connection->peer(), message.header.sequence);
    if (!parked) ThreadPool::get().rearm(*connection);

    AsyncCall call{};
    while (serves && target->asLocal()->nextAsync(&call)) {
        const ServedCall served(nullptr, 0, call.callerUid);
        AParcel ignored;
        serveLocally(*target->asLocal(), call.code, *call.in, &ignored);
    }
    return true;
}

}  // namespace binder

uid_t AIBinder_getCallingUid() {
    const binder::ServedCall* const call = binder::ServedCall::current();
    return call == nullptr ? getuid() : call->uid;
}

pid_t AIBinder_getCallingPid() {
    const binder::ServedCall* const call = binder::ServedCall::current();
    return call == nullptr ? getpid() : call->pid;
}

bool AIBinder_isHandlingTransaction() {
    return binder::ServedCall::current() != nullptr;
}
