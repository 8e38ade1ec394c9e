#include "calls/Serve.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>

#include "base/Log.h"
#include "calls/Exports.h"
#include "calls/Marshal.h"
#include "calls/Observe.h"
#include "calls/OnewayQueues.h"
#include "parcel/Status.h"

namespace binder {
namespace {

// The largest reply: a caller reads one before it calls again.
constexpr size_t kMaxReplyKept = sizeof(Header) + 2 * kMaxTransaction;

thread_local const ServedCall* gServedCall = nullptr;

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

/** The status of the call that the message is; leaves the reply's data in out. */
binder_status_t execute(const Header& header, const AParcel& in, AParcel* out) {
    const StrongBinder target = Exports::get().find(header.object);
    if (target == nullptr) {
        log(ANDROID_LOG_WARN, "Call of an object that is gone");
        return STATUS_DEAD_OBJECT;
    }
    return serveLocally(*localOf(target.get()), header.code, in, out);
}

bool sendReply(const Line& line, binder_status_t status, const AParcel& reply) {
    Packed packed(*line.peer, status == STATUS_OK ? &reply : nullptr);
    Header& header = packed.message().header;
    header.kind = MessageKind::kReply;
    header.code = static_cast<uint32_t>(status);
    if (packed.status() == STATUS_OK) {
        // A caller that does not read keeps no thread of ours: the rest follows when it does.
        switch (line.connection->send(packed.message(), kMaxReplyKept)) {
            case Connection::Sent::kDone:
                packed.sent();
                return true;
            case Connection::Sent::kBroken:
                return false;
            default:
                break;
        }
    }
    if (status == STATUS_FAILED_TRANSACTION) return false;
    const bool isDead = packed.status() == STATUS_DEAD_OBJECT;
    return sendReply(line, isDead ? STATUS_DEAD_OBJECT : STATUS_FAILED_TRANSACTION, reply);
}

}  // namespace

ServedCall::ServedCall(const Line* line, pid_t pid, uid_t uid)
    : mLine(line), mPid(pid), mUid(uid), mOuter(std::exchange(gServedCall, this)) {}

ServedCall::~ServedCall() {
    gServedCall = mOuter;
}

const ServedCall* ServedCall::current() {
    return gServedCall;
}

const Line* ServedCall::waitingPeer(const Peer& peer) {
    for (const ServedCall* call = gServedCall; call != nullptr; call = call->mOuter) {
        if (call->mLine != nullptr && call->mLine->peer.get() == &peer) return call->mLine;
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

bool serveCall(const Line& line, Incoming message) {
    const Connection& connection = *line.connection;
    if (message.header.kind != MessageKind::kCall) {
        return connection.malformed("a reply to nothing");
    }
    AParcel reply;
    binder_status_t status = STATUS_FAILED_TRANSACTION;
    switch (unpack(line.peer, &message)) {
        case Unpacked::kMalformed:
            return connection.malformed("bad object table");
        case Unpacked::kIncomplete:
            log(ANDROID_LOG_ERROR, "Refusing a call: no descriptors left");
            break;
        case Unpacked::kStale:
            log(ANDROID_LOG_WARN, "Refusing a call: an object in it is gone");
            status = STATUS_DEAD_OBJECT;
            break;
        case Unpacked::kWhole: {
            const ServedCall call(&line, connection.peerPid(), connection.peerUid());
            status = execute(message.header, *message.parcel, &reply);
            break;
        }
    }
    return sendReply(line, status, reply);
}

bool receiveOneway(const Line& line, Incoming message, StrongBinder* toServe) {
    const Connection& connection = *line.connection;
    const Header header = message.header;
    if (header.kind == MessageKind::kRelease) {
        Exports::get().release(line.peer->number(), header.object,
                               static_cast<uint32_t>(header.count));
        return true;
    }
    if (header.kind != MessageKind::kOneway) {
        return connection.malformed("a report of calls that were not made");
    }
    if (!line.peer->onewayAccount().add(OnewayCost::of(header))) {
        return connection.malformed("more one-way calls than may wait");
    }
    const Unpacked unpacked = unpack(line.peer, &message);
    OnewayCall call(line.peer, line.connection, std::move(message));
    if (unpacked == Unpacked::kMalformed) return connection.malformed("bad object table");
    StrongBinder target = Exports::get().find(header.object);
    if (target == nullptr || unpacked != Unpacked::kWhole) {
        log(ANDROID_LOG_WARN, "Dropping a one-way call of process %d: %s", connection.peerPid(),
            target == nullptr                   ? "its object is gone"
            : unpacked == Unpacked::kIncomplete ? "no descriptors left"
                                                : "an object in it is gone");
        return true;
    }
    if (OnewayQueues::get().add(*localOf(target.get()), std::move(call))) {
        *toServe = std::move(target);
    }
    return true;
}

void serveOneways(LocalObject& object) {
    while (const std::unique_ptr<OnewayCall> call = OnewayQueues::get().next(object)) {
        const ServedCall served(nullptr, 0, call->over->peerUid());
        AParcel ignored;
        serveLocally(object, call->code, *call->in, &ignored);
    }
}

}  // namespace binder

uid_t AIBinder_getCallingUid() {
    const binder::ServedCall* const call = binder::ServedCall::current();
    return call == nullptr ? getuid() : call->uid();
}

pid_t AIBinder_getCallingPid() {
    const binder::ServedCall* const call = binder::ServedCall::current();
    return call == nullptr ? getpid() : call->pid();
}

bool AIBinder_isHandlingTransaction() {
    return binder::ServedCall::current() != nullptr;
}
