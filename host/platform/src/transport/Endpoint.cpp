#include "transport/Endpoint.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <utility>

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/Fork.h"
#include "base/Log.h"

namespace binder {
namespace {

using android::base::unique_fd;

// For the exit handler, which must not find a half-destroyed object.
std::string* gSocketPath = nullptr;

std::string makeName() {
    std::random_device random;
    char name[kMaxEndpointName];
    snprintf(name, sizeof(name), "%d.%08x%08x", getpid(), random(), random());
    return name;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

void removeSocket() {
    if (!isForked()) unlink(gSocketPath->c_str());
}

}  // namespace

bool trustedCredentialsOf(int socket, ucred* credentials) {
    socklen_t size = sizeof(*credentials);
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, credentials, &size) == 0 &&
           (credentials->uid == geteuid() || credentials->uid == 0);
}

Endpoint::Endpoint(const RuntimeFolder& folder, std::string name, unique_fd listener)
    : mFolder(folder), mName(std::move(name)), mListener(std::move(listener)) {}

std::unique_ptr<Endpoint> Endpoint::create() {
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
    gSocketPath = new std::string(folder->path() + "/" + name);
    std::atexit(removeSocket);
    return std::unique_ptr<Endpoint>(new Endpoint(*folder, name, std::move(listener)));
}

std::shared_ptr<Connection> Endpoint::connect(const std::string& name, ConnectionKind kind,
                                              binder_status_t* status) const {
    *status = STATUS_FAILED_TRANSACTION;
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket < 0) {
        log(ANDROID_LOG_ERROR, "Cannot make a socket: %s", strerror(errno));
        return nullptr;
    }
    const sockaddr_un address = addressOf(mFolder.shortPath(name));
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        // A full backlog is a peer that has been stopped, anything else one that is gone.
        if (errno != EAGAIN) *status = STATUS_DEAD_OBJECT;
        return nullptr;
    }
    ucred credentials{};
    if (!trustedCredentialsOf(socket, &credentials) || credentials.pid != pidOfEndpoint(name)) {
        log(ANDROID_LOG_ERROR, "Refusing %s: it belongs to process %d of user %u", name.c_str(),
            credentials.pid, credentials.uid);
        *status = STATUS_DEAD_OBJECT;
        return nullptr;
    }
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) & ~O_NONBLOCK);

    Hello hello{.magic = Hello::kMagic, .kind = kind, .endpoint = {}};
    mName.copy(hello.endpoint, sizeof(hello.endpoint));
    // Who accepts and closes at once has run out of descriptors.
    if (::send(socket, &hello, sizeof(hello), MSG_NOSIGNAL) != sizeof(hello)) return nullptr;
    *status = STATUS_OK;
    return std::make_shared<Connection>(std::move(socket), kind, credentials.pid, credentials.uid);
}

}  // namespace binder
