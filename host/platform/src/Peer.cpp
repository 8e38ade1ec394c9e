#include "Peer.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <poll.h>

#include "Death.h"
#include "Endpoint.h"
#include "Exports.h"
#include "IoThread.h"
#include "Log.h"

namespace binder {
namespace {

// What a peer that does not read may leave unsent: beyond it one-way calls are refused.
constexpr size_t kMaxOnewayKept = 1024 * 1024;
// Beyond it the peer is given up, since its counts can no longer be kept.
constexpr size_t kMaxControlKept = 16 * 1024 * 1024;
// A process that ends closes its sockets one by one: what may pass until the control connection is.
constexpr std::chrono::milliseconds kEndOfProcess{200};

}  // namespace

PendingAck::PendingAck(std::shared_ptr<Peer> to, uint64_t token)
    : mTo(std::move(to)), mToken(token) {}

PendingAck::~PendingAck() {
    mTo->sendAck(mToken);
}

Peer::Peer(std::string name) : mName(std::move(name)) {}

void Peer::died() {
    std::vector<std::shared_ptr<Connection>> controls;
    std::vector<std::shared_ptr<Connection>> idle;
    std::unordered_set<std::shared_ptr<Connection>> data;
    std::unordered_map<uint64_t, std::vector<StrongBinder>> awaitingAck;
    std::unordered_map<uint64_t, Acquiring> acquiring;
    {
        const std::lock_guard lock(mLock);
        if (mDead.exchange(true)) return;
        controls.swap(mControls);
        idle.swap(mIdle);
        data.swap(mData);
        awaitingAck.swap(mAwaitingAck);
        acquiring.swap(mAcquiring);
        for (const auto& [id, proxy] : mProxies)
            DeathNotifier::get().proxyDied(*proxy);
        mProxies.clear();
    }
    if (Endpoint* const endpoint = Endpoint::get(); endpoint != nullptr) endpoint->forget(*this);
    for (const std::shared_ptr<Connection>& control : controls) {
        IoThread::get().remove(*control);
        control->shutdown();
    }
    for (const std::shared_ptr<Connection>& connection : data)
        connection->shutdown();
    {
        const std::lock_guard lock(mOnewayLock);
        if (mOneway != nullptr) IoThread::get().remove(*mOneway);
        mOneway.reset();
    }
    Exports::get().dropPeer(*this);
    for (auto& [token, binders] : awaitingAck)
        DeathNotifier::get().release(std::move(binders));
}

binder_status_t Peer::connectionBroke() {
    std::shared_ptr<Connection> control;
    {
        const std::lock_guard lock(mLock);
        if (!mControls.empty()) control = mControls.front();
    }
    if (control != nullptr) {
        pollfd end{.fd = control->fd(), .events = POLLRDHUP, .revents = 0};
        int ended;
        do {
            ended = poll(&end, 1, static_cast<int>(kEndOfProcess.count()));
        } while (ended < 0 && errno == EINTR);
        if (ended == 0) {
            log(ANDROID_LOG_WARN, "A connection to process %d broke, though it lives",
                control->peerPid());
            return STATUS_FAILED_TRANSACTION;
        }
    }
    // Whoever has seen the end of a process must not find it alive in the next moment.
    died();
    return STATUS_DEAD_OBJECT;
}

bool Peer::addControl(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    if (isDead()) return false;
    mControls.push_back(connection);
    return true;
}

bool Peer::addData(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    if (isDead()) return false;
    mData.insert(connection);
    return true;
}

void Peer::removeData(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    mData.erase(connection);
}

std::shared_ptr<Connection> Peer::takeConnection(binder_status_t* status) {
    {
        const std::lock_guard lock(mLock);
        if (!mIdle.empty()) {
            std::shared_ptr<Connection> connection = std::move(mIdle.back());
            mIdle.pop_back();
            return connection;
        }
    }
    Endpoint* const endpoint = Endpoint::get();
    *status = STATUS_DEAD_OBJECT;
    if (isDead() || endpoint == nullptr) return nullptr;
    std::shared_ptr<Connection> connection =
            endpoint->connect(shared_from_this(), ConnectionKind::kCall, status);
    if (connection != nullptr && !addData(connection)) {
        *status = STATUS_DEAD_OBJECT;
        return nullptr;
    }
    return connection;
}

void Peer::returnConnection(std::shared_ptr<Connection> connection) {
    const std::lock_guard lock(mLock);
    if (!isDead()) mIdle.push_back(std::move(connection));
}

binder_status_t Peer::sendOneway(Outgoing& message) {
    std::shared_ptr<Connection> connection;
    {
        const std::lock_guard lock(mOnewayLock);
        if (isDead()) return STATUS_DEAD_OBJECT;
        if (mOneway == nullptr) {
            Endpoint* const endpoint = Endpoint::get();
            binder_status_t status = STATUS_DEAD_OBJECT;
            if (endpoint == nullptr) return status;
            mOneway = endpoint->connect(shared_from_this(), ConnectionKind::kOneway, &status);
            if (mOneway == nullptr) return status;
        }
        // The numbers tell how far the peer has got, also when some are lost with a connection.
        message.header.sequence = mOnewaySent.load(std::memory_order_relaxed) + 1;
        const Connection::Sent sent = mOneway->send(message, kMaxOnewayKept);
        if (sent == Connection::Sent::kDone) {
            mOnewaySent.store(message.header.sequence, std::memory_order_relaxed);
            return STATUS_OK;
        }
        if (sent != Connection::Sent::kBroken) return STATUS_FAILED_TRANSACTION;
        connection = mOneway;
    }
    dropOneway(*connection);
    return connectionBroke();
}

void Peer::dropOneway(const Connection& connection) {
    IoThread::get().remove(connection);
    std::shared_ptr<Connection> last;  // released without the lock
    const std::lock_guard lock(mOnewayLock);
    if (mOneway.get() == &connection) last = std::move(mOneway);
}

StrongBinder Peer::proxyLocked(uint64_t id, std::string_view descriptor, bool* isNew) {
    const auto found = mProxies.find(id);
    *isNew = found == mProxies.end() || !found->second->tryIncStrong();
    if (!*isNew) return StrongBinder(found->second);
    auto* const proxy = new ProxyObject(shared_from_this(), id, std::string(descriptor), isDead());
    if (!isDead()) mProxies[id] = proxy;
    return StrongBinder(proxy);
}

StrongBinder Peer::receivedFromOwner(uint64_t id, std::string_view descriptor) {
    const std::lock_guard lock(mLock);
    bool isNew = false;
    StrongBinder proxy = proxyLocked(id, descriptor, &isNew);
    ++proxy->asProxy()->mReferences;
    return proxy;
}

StrongBinder Peer::receivedFromOther(uint64_t id, std::string_view descriptor,
                                     std::shared_ptr<PendingAck> ack) {
    StrongBinder proxy;
    uint64_t token = 0;
    {
        const std::lock_guard lock(mLock);
        bool isNew = false;
        proxy = proxyLocked(id, descriptor, &isNew);
        // A proxy that was here already has a reference, or one on its way under another sender's
        // guarantee.
        if (!isNew || isDead() || id == kServiceManagerObject) return proxy;
        ++proxy->asProxy()->mReferences;
        token = ++mLastToken;
        proxy->incWeak();
        mAcquiring[token] = {.proxy = WeakBinder(proxy.get()), .ack = std::move(ack)};
    }
    Header message{};
    message.kind = MessageKind::kAcquire;
    message.object = id;
    message.token = token;
    sendControl(message);
    return proxy;
}

StrongBinder Peer::permanent(uint64_t id, std::string_view descriptor) {
    const std::lock_guard lock(mLock);
    bool isNew = false;
    return proxyLocked(id, descriptor, &isNew);
}

void Peer::proxyReleased(ProxyObject& proxy) {
    Header message{};
    {
        const std::lock_guard lock(mLock);
        const auto found = mProxies.find(proxy.id());
        if (found != mProxies.end() && found->second == &proxy) mProxies.erase(found);
        if (isDead() || proxy.mReferences == 0) return;
        message.token = proxy.mReferences;
    }
    message.kind = MessageKind::kDecRef;
    message.object = proxy.id();
    message.sequence = mOnewaySent.load(std::memory_order_relaxed);
    sendControl(message);
}

std::optional<uint64_t> Peer::awaitAck(std::vector<StrongBinder> binders) {
    const std::lock_guard lock(mLock);
    if (isDead()) return std::nullopt;
    mAwaitingAck[++mLastToken] = std::move(binders);
    return mLastToken;
}

std::vector<StrongBinder> Peer::acknowledged(uint64_t token) {
    const std::lock_guard lock(mLock);
    auto kept = mAwaitingAck.extract(token);
    return kept.empty() ? std::vector<StrongBinder>{} : std::move(kept.mapped());
}

void Peer::sendAck(uint64_t token) {
    Header message{};
    message.kind = MessageKind::kAck;
    message.token = token;
    sendControl(message);
}

void Peer::sendControl(Header message) {
    std::shared_ptr<Connection> control;
    {
        const std::lock_guard lock(mLock);
        if (mControls.empty() || Endpoint::get() == nullptr) return;
        // Always the same one, so that an acquired reference is not given back before it is taken.
        control = mControls.front();
    }
    message.magic = Header::kMagic;
    Outgoing outgoing;
    outgoing.header = message;
    if (control->send(outgoing, kMaxControlKept) != Connection::Sent::kDone) died();
}

void Peer::acquired(const Header& answer) {
    Acquiring acquiring;  // released, and its acknowledgement sent, without the lock
    const std::lock_guard lock(mLock);
    const auto pending = mAcquiring.find(answer.token);
    if (pending == mAcquiring.end()) return;
    acquiring = std::move(pending->second);
    mAcquiring.erase(pending);
    if (answer.code == STATUS_OK) return;
    // The proxy may have gone meanwhile, and a newer one of the same object taken its place.
    const auto proxy = mProxies.find(acquiring.proxy->asProxy()->id());
    if (proxy == mProxies.end() || proxy->second != acquiring.proxy.get()) return;
    --proxy->second->mReferences;
    DeathNotifier::get().proxyDied(*proxy->second);
    mProxies.erase(proxy);
}

void Peer::onControl(const Header& message) {
    switch (message.kind) {
        case MessageKind::kDecRef:
            Exports::get().giveBack(*this, message.object, message.token, message.sequence);
            return;
        case MessageKind::kAcquire: {
            const bool taken = Exports::get().acquire(*this, message.object);
            Header answer = message;
            answer.kind = MessageKind::kAcquireAnswer;
            answer.code = static_cast<uint32_t>(taken ? STATUS_OK : STATUS_DEAD_OBJECT);
            sendControl(answer);
            return;
        }
        case MessageKind::kAcquireAnswer:
            acquired(message);
            return;
        case MessageKind::kAck:
            DeathNotifier::get().release(acknowledged(message.token));
            return;
        default:
            return;
    }
}

}  // namespace binder
