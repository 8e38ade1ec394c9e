#include "calls/Peer.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/epoll.h>

namespace binder {

using android::base::unique_fd;

/** The process's own descriptor, which is readable when it has ended. */
class Peer::Life final : public Watched {
  public:
    explicit Life(unique_fd fd) : mFd(std::move(fd)) {}

    int fd() const override { return mFd.get(); }
    void onEvents(uint32_t /*events*/) override { onEnd(); }

    std::function<void()> onEnd;

  private:
    const unique_fd mFd;
};

Peer::Peer(pid_t pid, unique_fd life)
    : mPid(pid), mLife(std::make_shared<Life>(std::move(life))), mDead(mLife->fd() < 0) {}

Peer::~Peer() {
    IoThread::get().forget(*mLife);
}

bool Peer::watch(std::function<void()> onEnd) {
    mLife->onEnd = std::move(onEnd);
    return IoThread::get().watch(mLife, EPOLLIN);
}

bool Peer::hasEnded(std::chrono::milliseconds time) const {
    if (isDead()) return true;
    pollfd end{.fd = mLife->fd(), .events = POLLIN, .revents = 0};
    int ended;
    do {
        ended = poll(&end, 1, static_cast<int>(time.count()));
    } while (ended < 0 && errno == EINTR);
    return ended != 0;
}

bool Peer::end(std::vector<std::shared_ptr<Connection>>* connections,
               std::vector<std::shared_ptr<Route>>* routes) {
    {
        const std::lock_guard lock(mLock);
        if (mDead.exchange(true)) return false;
        connections->assign(mConnections.begin(), mConnections.end());
        for (const auto& [name, weak] : mRoutes) {
            if (std::shared_ptr<Route> route = weak.lock()) routes->push_back(std::move(route));
        }
    }
    IoThread::get().forget(*mLife);
    // What has arrived of it can still be read.
    for (const std::shared_ptr<Connection>& connection : *connections)
        connection->shutdown();
    return true;
}

void Peer::add(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    mConnections.insert(connection);
    if (isDead()) connection->shutdown();
}

void Peer::remove(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    mConnections.erase(connection);
}

}  // namespace binder
