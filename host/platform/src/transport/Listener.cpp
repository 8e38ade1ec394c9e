#include "transport/Listener.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/epoll.h>

#include "base/Log.h"
#include "transport/Connection.h"

namespace binder {
namespace {

using android::base::unique_fd;

// Until accepting is tried again when not even a refusal was possible.
constexpr std::chrono::milliseconds kPause{100};
constexpr std::chrono::seconds kBetweenComplaints{1};

}  // namespace

Listener::Listener(int socket, OnAccepted onAccepted)
    : mSocket(socket), mOnAccepted(std::move(onAccepted)) {}

bool Listener::start() {
    return IoThread::get().watch(shared_from_this(), EPOLLIN);
}

void Listener::onEvents(uint32_t /*events*/) {
    for (;;) {
        // Another thread may have taken its place for a moment: it comes before any connection.
        if (mSpare < 0) mSpare.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (mSpare < 0) {
            pause();
            return;
        }
        unique_fd socket(accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC));
        if (socket < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN) return;
            if (refuseOne()) continue;
            return;
        }
        ucred credentials{};
        if (trustedCredentialsOf(socket, &credentials)) {
            mOnAccepted(std::move(socket), credentials);
        } else {
            complain(ANDROID_LOG_WARN, "Refusing a connection of process %d of user %u",
                     credentials.pid, credentials.uid);
        }
    }
}

bool Listener::refuseOne() {
    // A connection that is not taken would wake the thread for ever. That there is no descriptor
    // for one is told whether or not there is a connection.
    mSpare.reset();
    unique_fd refused(accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC));
    const int error = refused < 0 ? errno : 0;
    if (error != 0) {
        if (error != EAGAIN) pause();
        return false;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - mLastComplaint > kBetweenComplaints) {
        complain(ANDROID_LOG_ERROR, "Refusing connections: no descriptors left");
        mLastComplaint = now;
    }
    return true;
}

void Listener::pause() {
    IoThread::get().forget(*this);
    IoThread::get().after(kPause, [self = shared_from_this()] {
        if (self->start()) {
            self->onEvents(EPOLLIN);
        } else {
            self->pause();
        }
    });
}

}  // namespace binder
