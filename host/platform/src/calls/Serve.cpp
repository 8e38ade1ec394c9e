#include "calls/Serve.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>

#include "base/Log.h"
#include "calls/Exports.h"
#include "calls/Marshal.h"
#include "calls/Observe.h"
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
        complain(ANDROID_LOG_WARN, "Call of an object that is gone");
        return STATUS_DEAD_OBJECT;
    }
    return serveOther(*localOf(target.get()), header.code, in, out);
}

/** The processes whose threads wait for the caller of the message, which has been unpacked. */
std::vector<pid_t> waitingFor(const Incoming& message) {
    if (message.header.count == 0) return {};
    return parseTable(message.header, message.table).value_or(Table{}).waiting;
}

bool sendReply(const Line& line, binder_status_t status, const AParcel& reply) {
    Packed packed(status == STATUS_OK ? &reply : nullptr);
    Header& header = packed.message().header;
    header.kind = MessageKind::kReply;
    header.code = static_cast<uint32_t>(status);
    if (packed.status() == STATUS_OK) {
        // A caller that does not read keeps no thread of ours: the rest follows when it does.
        switch (line.connection->send(packed.message(), kMaxReplyKept)) {
            case Sent::kDone:
                return true;
            case Sent::kBroken:
                return false;
            default:
                break;
        }
    }
    if (status == STATUS_FAILED_TRANSACTION) return false;
    const bool isDead = packed.status() == STATUS_DEAD_OBJECT;
    return sendReply(line, isDead ? STATUS_DEAD_OBJECT : STATUS_FAILED_TRANSACTION, reply);
}

/** Sends a line that came over the other one to whom it is for. */
bool handOn(const Line& over, const Incoming& message) {
    const auto way = ServedCall::wayTo(static_cast<pid_t>(message.header.object));
    if (way.line == nullptr) return over.connection->malformed("a line for nobody");
    Outgoing onward;
    onward.header = message.header;
    onward.descriptors.push_back({message.descriptors.front().get()});
    static_cast<void>(way.line->connection->sendWaiting(onward));
    return true;
}

}  // namespace

ServedCall::ServedCall(const Line* line, std::span<const pid_t> waiting, pid_t pid, uid_t uid)
    : mLine(line),
      mWaiting(waiting),
      mPid(pid),
      mUid(uid),
      mOuter(std::exchange(gServedCall, this)),
      mDepth(mOuter == nullptr ? 1 : mOuter->mDepth + 1) {}

ServedCall::~ServedCall() {
    gServedCall = mOuter;
}

const ServedCall* ServedCall::current() {
    return gServedCall;
}

bool ServedCall::mayNest() {
    return gServedCall == nullptr || gServedCall->mDepth < kMaxNesting;
}

std::vector<pid_t> ServedCall::waiting() {
    std::vector<pid_t> pids;
    if (gServedCall == nullptr || gServedCall->mLine == nullptr) return pids;
    // Those of the calls further out wait for the innermost one's caller, too.
    const std::span<const pid_t> above = gServedCall->mWaiting;
    pids.push_back(gServedCall->mPid);
    pids.insert(pids.end(), above.begin(), above.end());
    if (pids.size() > kMaxNesting) pids.resize(kMaxNesting);
    return pids;
}

ServedCall::Way ServedCall::wayTo(pid_t pid) {
    for (const ServedCall* call = gServedCall; call != nullptr; call = call->mOuter) {
        if (call->mLine == nullptr) break;
        if (call->mPid == pid) return {.line = call->mLine, .isDirect = true};
        const std::span<const pid_t> above = call->mWaiting;
        if (std::find(above.begin(), above.end(), pid) != above.end()) return {.line = call->mLine};
    }
    return {};
}

binder_status_t serveLocally(LocalObject& object, transaction_code_t code, const AParcel& in,
                             AParcel* out) {
    in.setPosition(0);
    const AIBinder_Class& clazz = *object.clazz();
    binder_status_t status = STATUS_UNKNOWN_TRANSACTION;
    if (isUserCode(code)) {
        if (clazz.hasTokenHeader && in.checkInterfaceToken(clazz.token) != STATUS_OK) {
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

binder_status_t serveOther(LocalObject& object, transaction_code_t code, const AParcel& in,
                           AParcel* out) {
    const auto provided = static_cast<uint32_t>(object.offerStability(kOwnStability));
    const auto required = static_cast<uint32_t>(kOwnStability);
    if (isUserCode(code) && (provided & required) != required) {
        complain(ANDROID_LOG_ERROR, "Refusing a call: the object's stability does not suffice");
        return STATUS_BAD_TYPE;
    }
    return serveLocally(object, code, in, out);
}

bool serveCall(const Line& line, Incoming message) {
    const Connection& connection = *line.connection;
    if (message.header.kind != MessageKind::kCall) {
        return connection.malformed("a reply to nothing");
    }
    AParcel reply;
    binder_status_t status = STATUS_FAILED_TRANSACTION;
    switch (unpack(*line.peer, &message)) {
        case Unpacked::kMalformed:
            return connection.malformed("bad object table");
        case Unpacked::kIncomplete:
            complain(ANDROID_LOG_ERROR, "Refusing a call: no descriptors left");
            break;
        case Unpacked::kStale:
            complain(ANDROID_LOG_WARN, "Refusing a call: an object in it is gone");
            status = STATUS_DEAD_OBJECT;
            break;
        case Unpacked::kWhole: {
            if (!ServedCall::mayNest()) {
                complain(ANDROID_LOG_ERROR, "Refusing a call: too many within each other");
                break;
            }
            const std::vector<pid_t> waiting = waitingFor(message);
            const ServedCall call(&line, waiting, connection.peerPid(), connection.peerUid());
            status = execute(message.header, *message.parcel, &reply);
            break;
        }
    }
    return sendReply(line, status, reply);
}

bool serveHandedLine(const Line& over, Incoming message) {
    if (message.descriptorsLost) return true;  // who waits at its other end sees it end
    if (static_cast<pid_t>(message.header.object) != getpid()) {
        return handOn(over, message);
    }
    ucred credentials{};
    Peers* const peers = Peers::get();
    if (peers == nullptr || !trustedCredentialsOf(message.descriptors.front(), &credentials)) {
        return over.connection->malformed("a line of nobody");
    }
    const std::shared_ptr<Peer> peer = peers->obtain(credentials.pid);
    if (peer == nullptr) return true;
    const Line line{.peer = peer,
                    .connection = std::make_shared<Connection>(
                            std::move(message.descriptors.front()), ConnectionKind::kCall,
                            credentials, peer->account())};
    peer->add(line.connection);
    Incoming call;
    const Received received = line.connection->receive(&call, {.kind = Wait::Kind::kUntilThere});
    if (received == Received::kMessage) static_cast<void>(serveCall(line, std::move(call)));
    peer->remove(line.connection);
    return true;
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
