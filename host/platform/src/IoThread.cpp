#include "IoThread.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/epoll.h>

#include "Endpoint.h"
#include "Log.h"
#include "Peer.h"
#include "Thread.h"
#include "ThreadPool.h"

namespace binder {
namespace {

// No connection has it.
constexpr uint64_t kListener = 0;
// Of one control connection, until the others have their turn.
constexpr int kMessagesPerTurn = 64;

}  // namespace

IoThread& IoThread::get() {
    static IoThread* const instance = new IoThread;  // outlives every thread
    return *instance;
}

bool IoThread::start(Endpoint& endpoint) {
    mEndpoint = &endpoint;
    mEpoll.reset(epoll_create1(EPOLL_CLOEXEC));
    epoll_event event{.events = EPOLLIN, .data = {.u64 = kListener}};
    if (mEpoll < 0 || epoll_ctl(mEpoll, EPOLL_CTL_ADD, endpoint.listener(), &event) != 0) {
        log(ANDROID_LOG_ERROR, "Cannot watch the endpoint: %s", strerror(errno));
        return false;
    }
    return startQuietThread("binder:io", [this] { run(); });
}

uint32_t IoThread::eventsOf(const Watch& watch) {
    const uint32_t room = watch.forRoom ? uint32_t{EPOLLOUT} : 0;
    switch (watch.role) {
        case Role::kGreeting:
        case Role::kControl:
            return room | EPOLLIN;
        case Role::kParked:
            return room | EPOLLRDHUP;
        case Role::kSender:
            return room;
    }
    return room;
}

void IoThread::watch(const std::shared_ptr<Connection>& connection, Role role) {
    const std::lock_guard lock(mLock);
    Watch& watch = mWatches[connection->id()];
    const int operation = watch.connection == nullptr ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    watch = {.connection = connection, .role = role, .forRoom = watch.forRoom};
    epoll_event event{.events = eventsOf(watch), .data = {.u64 = connection->id()}};
    epoll_ctl(mEpoll, operation, connection->fd(), &event);
}

void IoThread::remove(const Connection& connection) {
    std::shared_ptr<Connection> last;  // released without the lock
    const std::lock_guard lock(mLock);
    const auto found = mWatches.find(connection.id());
    if (found == mWatches.end()) return;
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, connection.fd(), nullptr);
    last = std::move(found->second.connection);
    mWatches.erase(found);
}

void IoThread::watchForRoom(const std::shared_ptr<Connection>& connection) {
    const std::lock_guard lock(mLock);
    const auto [found, isNew] =
            mWatches.try_emplace(connection->id(), Watch{connection, Role::kSender, true});
    Watch& watch = found->second;
    watch.forRoom = true;
    epoll_event event{.events = eventsOf(watch), .data = {.u64 = connection->id()}};
    epoll_ctl(mEpoll, isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, connection->fd(), &event);
}

void IoThread::roomFound(const Connection& connection) {
    std::shared_ptr<Connection> last;  // released without the lock
    const std::lock_guard lock(mLock);
    const auto found = mWatches.find(connection.id());
    if (found == mWatches.end()) return;
    Watch& watch = found->second;
    watch.forRoom = false;
    if (watch.role != Role::kSender) {
        epoll_event event{.events = eventsOf(watch), .data = {.u64 = connection.id()}};
        epoll_ctl(mEpoll, EPOLL_CTL_MOD, connection.fd(), &event);
        return;
    }
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, connection.fd(), nullptr);
    last = std::move(watch.connection);
    mWatches.erase(found);
}

void IoThread::run() {
    for (;;) {
        std::array<epoll_event, 32> events;
        const int count = epoll_wait(mEpoll, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<size_t>(i)];
            if (event.data.u64 == kListener) {
                acceptAll();
            } else {
                serve(event.data.u64, event.events);
            }
        }
    }
}

void IoThread::serve(uint64_t id, uint32_t events) {
    std::shared_ptr<Connection> connection;
    Role role;
    {
        const std::lock_guard lock(mLock);
        const auto found = mWatches.find(id);
        if (found == mWatches.end()) return;
        connection = found->second.connection;
        role = found->second.role;
    }
    if ((events & EPOLLOUT) != 0 && !connection->flush()) {
        end(connection);
        return;
    }
    if ((events & ~uint32_t{EPOLLOUT}) == 0) return;
    switch (role) {
        case Role::kGreeting:
            greet(connection);
            return;
        case Role::kControl:
            readControl(connection);
            return;
        case Role::kParked:
        case Role::kSender:
            end(connection);
            return;
    }
}

void IoThread::acceptAll() {
    while (const std::shared_ptr<Connection> connection = mEndpoint->accept()) {
        watch(connection, Role::kGreeting);
        greet(connection);
    }
}

void IoThread::greet(const std::shared_ptr<Connection>& connection) {
    switch (mEndpoint->greet(connection)) {
        case Endpoint::Greeting::kNotYet:
            return;
        case Endpoint::Greeting::kRefused:
            remove(*connection);
            return;
        case Endpoint::Greeting::kControl:
            watch(connection, Role::kControl);
            greetParked();
            return;
        case Endpoint::Greeting::kParked:
            watch(connection, Role::kParked);
            return;
        case Endpoint::Greeting::kServed:
            remove(*connection);
            ThreadPool::get().add(connection);
            return;
    }
}

void IoThread::greetParked() {
    std::vector<std::shared_ptr<Connection>> parked;
    {
        const std::lock_guard lock(mLock);
        for (const auto& [id, watch] : mWatches) {
            if (watch.role == Role::kParked) parked.push_back(watch.connection);
        }
    }
    for (const std::shared_ptr<Connection>& connection : parked) {
        const Endpoint::Greeting greeting = mEndpoint->greetParked(connection);
        if (greeting == Endpoint::Greeting::kParked) continue;
        remove(*connection);
        if (greeting == Endpoint::Greeting::kServed) ThreadPool::get().add(connection);
    }
}

void IoThread::readControl(const std::shared_ptr<Connection>& connection) {
    for (int i = 0; i < kMessagesPerTurn; ++i) {
        Incoming message;
        switch (connection->receive(&message, Connection::Wait::kNo)) {
            case Connection::Received::kMessage:
                connection->peer()->onControl(message.header);
                continue;
            case Connection::Received::kNotYet:
                return;
            case Connection::Received::kMalformed:
                log(ANDROID_LOG_WARN, "Ending the connection to process %d: %s",
                    connection->peerPid(), connection->fault());
                end(connection);
                return;
            case Connection::Received::kEnd:
                // What a process sent before it went is still served.
                acceptAll();
                end(connection);
                return;
        }
    }
}

void IoThread::end(const std::shared_ptr<Connection>& connection) {
    remove(*connection);
    if (connection->peer() == nullptr) return;
    // A connection for calls that breaks while a reply is kept ends for its reader as well.
    if (connection->kind() == ConnectionKind::kControl) connection->peer()->died();
    if (connection->kind() == ConnectionKind::kOneway) connection->peer()->dropOneway(*connection);
}

}  // namespace binder
