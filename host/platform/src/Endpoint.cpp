#include "Endpoint.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "IoThread.h"
#include "Log.h"

namespace binder {
namespace {

using android::base::unique_fd;

std::atomic<bool> gForked{false};
// For the exit handler, which must not find a half-destroyed object.
std::string* gSocketPath = nullptr;

std::string makeName() {
    std::random_device random;
    char name[Hello::kNameSize];
    snprintf(name, sizeof(name), "%d.%08x%08x", getpid(), random(), random());
    return name;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

bool credentialsOf(int socket, ucred* credentials) {
    socklen_t size = sizeof(*credentials);
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, credentials, &size) == 0;
}

bool isTrusted(const ucred& credentials) {
    return credentials.uid == geteuid() || credentials.uid == 0;
}

void removeSocket() {
    if (!gForked) unlink(gSocketPath->c_str());
}

}  // namespace

Endpoint::Endpoint(const RuntimeFolder& folder, std::string name, unique_fd listener)
    : mFolder(folder),
      mName(std::move(name)),
      mListener(std::move(listener)),
      mSpare(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

Endpoint* Endpoint::get() {
    static Endpoint* const instance = create();
    return gForked.load(std::memory_order_relaxed) ? nullptr : instance;
}

Endpoint* Endpoint::create() {
    const RuntimeFolder* const folder = RuntimeFolder::get();
    if (folder == nullptr) return nullptr;
    folder->sweep();

    const std::string name = makeName();
    unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = addressOf(folder->shortPath(name));
    if (listener < 0 ||
        bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        log(ANDROID_LOG_ERROR, "Cannot listen in %s: %s", folder->path().c_str(), strerror(errno));
        return nullptr;
    }
    // A forked child shares the sockets but has none of the threads that serve them.
    pthread_atfork(nullptr, nullptr, [] { gForked = true; });
    gSocketPath = new std::string(folder->path() + "/" + name);
    std::atexit(removeSocket);

    auto* const endpoint = new Endpoint(*folder, name, std::move(listener));
    if (!IoThread::get().start(*endpoint)) return nullptr;
    return endpoint;
}

std::shared_ptr<Peer> Endpoint::findOrCreateLocked(const std::string& name) {
    std::shared_ptr<Peer>& peer = mPeers[name];
    if (peer == nullptr || peer->isDead()) peer = std::make_shared<Peer>(name);
    return peer;
}

std::shared_ptr<Peer> Endpoint::peer(const std::string& name) {
    std::shared_ptr<Peer> peer;
    {
        // Connecting to a local socket does not wait, so others may wait for it here.
        const std::lock_guard lock(mLock);
        if (const auto found = mPeers.find(name); found != mPeers.end()) return found->second;
        peer = findOrCreateLocked(name);
        binder_status_t status = STATUS_OK;
        const std::shared_ptr<Connection> control =
                connect(peer, ConnectionKind::kControl, &status);
        if (control != nullptr && peer->addControl(control)) {
            IoThread::get().watch(control, IoThread::Role::kControl);
            return peer;
        }
    }
    peer->died();
    return peer;
}

void Endpoint::forget(const Peer& peer) {
    std::shared_ptr<Peer> last;  // released without the lock
    const std::lock_guard lock(mLock);
    const auto found = mPeers.find(peer.name());
    if (found == mPeers.end() || found->second.get() != &peer) return;
    last = std::move(found->second);
    mPeers.erase(found);
}

std::shared_ptr<Connection> Endpoint::connect(const std::shared_ptr<Peer>& peer,
                                              ConnectionKind kind, binder_status_t* status) {
    *status = STATUS_FAILED_TRANSACTION;
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket < 0) {
        log(ANDROID_LOG_ERROR, "Cannot make a socket: %s", strerror(errno));
        return nullptr;
    }
    const sockaddr_un address = addressOf(mFolder.shortPath(peer->name()));
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        // A full backlog is a peer that has been stopped, anything else one that is gone.
        if (errno != EAGAIN) *status = STATUS_DEAD_OBJECT;
        return nullptr;
    }
    ucred credentials{};
    if (!credentialsOf(socket, &credentials) || !isTrusted(credentials) ||
        credentials.pid != pidOfEndpoint(peer->name())) {
        log(ANDROID_LOG_ERROR, "Refusing %s: it belongs to process %d of user %u",
            peer->name().c_str(), credentials.pid, credentials.uid);
        *status = STATUS_DEAD_OBJECT;
        return nullptr;
    }
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) & ~O_NONBLOCK);

    Hello hello{.magic = Hello::kMagic, .kind = kind, .endpoint = {}};
    mName.copy(hello.endpoint, sizeof(hello.endpoint));
    // Who accepts and closes at once has run out of descriptors.
    if (::send(socket, &hello, sizeof(hello), MSG_NOSIGNAL) != sizeof(hello)) return nullptr;
    *status = STATUS_OK;
    auto connection =
            std::make_shared<Connection>(std::move(socket), credentials.pid, credentials.uid);
    connection->introduce(kind, peer->name());
    connection->attach(peer);
    return connection;
}

std::shared_ptr<Connection> Endpoint::accept() {
    for (;;) {
        unique_fd socket(accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC));
        if (socket < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if ((errno == EMFILE || errno == ENFILE) && mSpare >= 0) {
                // Without this the connection would wait, and wake the thread, for ever.
                mSpare.reset();
                unique_fd(accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC)).reset();
                mSpare.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
                log(ANDROID_LOG_ERROR, "Refusing a connection: no descriptors left");
                continue;
            }
            return nullptr;
        }
        ucred credentials{};
        if (!credentialsOf(socket, &credentials) || !isTrusted(credentials)) {
            log(ANDROID_LOG_WARN, "Refusing a connection of process %d of user %u", credentials.pid,
                credentials.uid);
            continue;
        }
        return std::make_shared<Connection>(std::move(socket), credentials.pid, credentials.uid);
    }
}

Endpoint::Greeting Endpoint::greet(const std::shared_ptr<Connection>& connection) {
    Hello hello;
    switch (connection->receiveHello(&hello)) {
        case Connection::Received::kMessage:
            break;
        case Connection::Received::kNotYet:
            return Greeting::kNotYet;
        default:
            return Greeting::kRefused;
    }
    const std::optional<std::string_view> name = parseHello(hello);
    if (!name.has_value() || pidOfEndpoint(*name) != connection->peerPid() || *name == mName) {
        log(ANDROID_LOG_WARN, "Refusing a connection of process %d: no valid hello",
            connection->peerPid());
        return Greeting::kRefused;
    }
    connection->introduce(hello.kind, std::string(*name));
    return hello.kind == ConnectionKind::kControl ? greetControl(connection)
                                                  : greetParked(connection);
}

Endpoint::Greeting Endpoint::greetControl(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    const std::shared_ptr<Peer> peer = findOrCreateLocked(connection->peerName());
    connection->attach(peer);
    return peer->addControl(connection) ? Greeting::kControl : Greeting::kRefused;
}

Endpoint::Greeting Endpoint::greetParked(const std::shared_ptr<Connection>& connection) {
    std::shared_ptr<Peer> peer;
    {
        const std::lock_guard lock(mLock);
        const auto found = mPeers.find(connection->peerName());
        if (found == mPeers.end()) return Greeting::kParked;
        peer = found->second;
    }
    connection->attach(peer);
    return peer->addData(connection) ? Greeting::kServed : Greeting::kRefused;
}

}  // namespace binder
