#include "transport/Endpoint.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "base/Random.h"
#include "transport/Connection.h"

namespace binder {
namespace {

using android::base::unique_fd;

// For the exit handler, which must not find a half-destroyed object.
std::string* gSocketPath = nullptr;

std::string makeName() {
    char name[kMaxEndpointName];
    snprintf(name, sizeof(name), "%d.%016" PRIx64, getpid(), randomNumber());
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

unique_fd Endpoint::connect(const std::string& name, ucred* credentials,
                            binder_status_t* status) const {
    *status = STATUS_FAILED_TRANSACTION;
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket < 0) {
        log(ANDROID_LOG_ERROR, "Cannot make a socket: %s", strerror(errno));
        return {};
    }
    const sockaddr_un address = addressOf(mFolder.shortPath(name));
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        // A full backlog is a peer that has been stopped, anything else one that is gone.
        if (errno != EAGAIN) *status = STATUS_DEAD_OBJECT;
        return {};
    }
    if (!trustedCredentialsOf(socket, credentials) || credentials->pid != pidOfEndpoint(name)) {
        complain(ANDROID_LOG_ERROR, "Refusing %s: it belongs to process %d of user %u",
                 name.c_str(), credentials->pid, credentials->uid);
        *status = STATUS_DEAD_OBJECT;
        return {};
    }
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) & ~O_NONBLOCK);
    *status = STATUS_OK;
    return socket;
}

}  // namespace binder
