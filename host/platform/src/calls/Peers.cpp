#include "calls/Peers.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <malloc.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "calls/Proxy.h"

namespace binder {
namespace {

using android::base::unique_fd;

// A process that ends closes its sockets before it is gone: what may pass in between.
constexpr std::chrono::milliseconds kEndOfProcess{200};

std::atomic<Peers*> gPeers{nullptr};

/**
 * Lets the heap keep what large transactions take and give back, over and over. To have the kernel
 * take such memory away and hand it out anew, page by page, costs more than all else about them.
 */
void keepFreedMemory() {
    mallopt(M_MMAP_THRESHOLD, 4 * kMaxTransaction);
    mallopt(M_TRIM_THRESHOLD, 8 * kMaxTransaction);
}

/** Each reference to an object is a descriptor: as many as the process is allowed to have. */
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

/** A connection over which nothing has come yet: its first message tells what it is for. */
class Peers::Newcomer final : public Watched, public std::enable_shared_from_this<Newcomer> {
  public:
    Newcomer(Peers& peers, std::shared_ptr<Peer> peer, unique_fd socket, const ucred& credentials)
        : mPeers(peers),
          mPeer(std::move(peer)),
          mSocket(std::move(socket)),
          mCredentials(credentials),
          mCharge(mPeer->account(), Resource::kDescriptors, 1) {}

    bool isAdmitted() const { return mCharge.isMade(); }

    int fd() const override { return mSocket.get(); }
    void onEvents(uint32_t /*events*/) override {
        const std::shared_ptr<Newcomer> self = shared_from_this();
        IoThread::get().forget(*this);
        Header header{};
        // A header is sent whole; who sends less has nothing to say.
        const ssize_t got = recv(mSocket, &header, sizeof(header), MSG_PEEK | MSG_DONTWAIT);
        if (got <= 0) return;
        const std::optional<ConnectionKind> kind =
                header.magic == Header::kMagic ? kindBegunBy(header.kind) : std::nullopt;
        if (got != sizeof(header) || !kind.has_value()) {
            complain(ANDROID_LOG_WARN, "Refusing a connection of process %d: no valid message",
                     mCredentials.pid);
            return;
        }
        auto connection = std::make_shared<Connection>(std::move(mSocket), *kind, mCredentials,
                                                       mPeer->account(), std::move(mCharge));
        mPeer->add(connection);
        mPeers.mServer.serve({mPeer, connection}, *kind);
        // Nobody will see the end of one that ended meanwhile.
        if (mPeer->isDead()) mPeers.mServer.letGo(*connection);
    }

  private:
    Peers& mPeers;
    const std::shared_ptr<Peer> mPeer;
    unique_fd mSocket;
    const ucred mCredentials;
    Charge mCharge;
};

Peers::Peers(std::unique_ptr<Endpoint> self, Server server)
    : mSelf(std::move(self)), mServer(std::move(server)) {}

Peers* Peers::get() {
    return isForked() ? nullptr : gPeers.load(std::memory_order_acquire);
}

Peers* Peers::start(const Server& server) {
    static std::mutex lock;
    if (isForked()) return nullptr;
    if (Peers* const started = get(); started != nullptr) return started;
    const std::lock_guard guard(lock);
    if (gPeers.load() == nullptr) gPeers.store(create(server), std::memory_order_release);
    return gPeers.load();
}

Peers* Peers::create(const Server& server) {
    raiseDescriptorLimit();
    if (!IoThread::get().start()) return nullptr;
    std::unique_ptr<Endpoint> self = Endpoint::create();
    if (self == nullptr) return nullptr;
    keepFreedMemory();
    auto peers = std::unique_ptr<Peers>(new Peers(std::move(self), server));
    const auto listener = std::make_shared<Listener>(
            peers->mSelf->listener(),
            [to = peers.get()](unique_fd socket, const ucred& credentials) {
                to->accepted(std::move(socket), credentials);
            });
    return listener->start() ? peers.release() : nullptr;  // outlives every thread
}

void Peers::accepted(unique_fd socket, const ucred& credentials) {
    std::shared_ptr<Peer> peer = obtain(credentials.pid);
    if (peer == nullptr) return;
    const auto newcomer =
            std::make_shared<Newcomer>(*this, std::move(peer), std::move(socket), credentials);
    if (!newcomer->isAdmitted()) {
        complain(ANDROID_LOG_WARN, "Refusing a connection of process %d: it has too many",
                 credentials.pid);
    } else {
        static_cast<void>(IoThread::get().watch(newcomer, EPOLLIN));  // else it goes
    }
}

std::shared_ptr<Peer> Peers::obtain(pid_t pid) {
    std::shared_ptr<Peer> former;
    {
        const std::lock_guard lock(mLock);
        if (const auto known = mPeers.find(pid); known != mPeers.end())
            former = known->second.lock();
    }
    if (former != nullptr) {
        if (!former->hasEnded({})) return former;
        ended(*former);
    }
    // The C library's function has no C linkage in its release 2.36.
    unique_fd life(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (life < 0 && errno != ESRCH && errno != EINVAL) {
        complain(ANDROID_LOG_ERROR, "Cannot watch process %d: %s", pid, strerror(errno));
        return nullptr;
    }
    auto peer = std::make_shared<Peer>(pid, std::move(life));
    if (peer->isDead()) return peer;
    const std::lock_guard lock(mLock);
    // Another thread may have met it meanwhile.
    std::weak_ptr<Peer>& known = mPeers[pid];
    if (std::shared_ptr<Peer> other = known.lock(); other != nullptr && !other->isDead()) {
        return other;
    }
    if (!peer->watch([this, weak = std::weak_ptr(peer)] {
            if (const std::shared_ptr<Peer> dead = weak.lock()) ended(*dead);
        })) {
        return nullptr;
    }
    known = peer;
    std::erase_if(mPeers, [](const auto& entry) { return entry.second.expired(); });
    return peer;
}

std::shared_ptr<Route> Peers::route(const std::string& name) {
    const std::shared_ptr<Peer> peer = obtain(pidOfEndpoint(name));
    if (peer == nullptr) return nullptr;
    return peer->route(name, [&] { return std::make_shared<Route>(*this, peer, name); });
}

void Peers::routeServed(const std::shared_ptr<Route>& route) {
    const std::lock_guard lock(mLock);
    if (!route->isDead()) mServed.try_emplace(route.get(), route);
}

void Peers::routeEnded(Route& route) {
    if (!route.end()) return;
    Proxy::routeDied(route);
    std::shared_ptr<Route> last;  // released without the lock
    const std::lock_guard lock(mLock);
    const auto served = mServed.find(&route);
    if (served == mServed.end()) return;
    last = std::move(served->second);
    mServed.erase(served);
}

void Peers::ended(Peer& peer) {
    std::vector<std::shared_ptr<Connection>> connections;
    std::vector<std::shared_ptr<Route>> routes;
    if (!peer.end(&connections, &routes)) return;
    for (const std::shared_ptr<Route>& route : routes)
        routeEnded(*route);
    for (const std::shared_ptr<Connection>& connection : connections)
        mServer.letGo(*connection);
}

binder_status_t Peers::connectionBroke(Route& route, Connection* connection) {
    if (route.isDead()) return STATUS_DEAD_OBJECT;
    // Whoever has seen the end of a process must not find it alive in the next moment.
    const bool isNews = connection == nullptr || connection->noteBroken();
    if (route.peer()->hasEnded(isNews ? kEndOfProcess : std::chrono::milliseconds(0))) {
        ended(*route.peer());
        return STATUS_DEAD_OBJECT;
    }
    if (!isNews) return STATUS_FAILED_TRANSACTION;
    // A process that has become another program lives on, but does not listen.
    binder_status_t status = STATUS_OK;
    if (route.connect(ConnectionKind::kCall, &status) != nullptr) {
        complain(ANDROID_LOG_WARN, "A connection to process %d broke, though it lives",
                 route.peer()->pid());
        return STATUS_FAILED_TRANSACTION;
    }
    if (status == STATUS_DEAD_OBJECT) routeEnded(route);
    return status;
}

}  // namespace binder
