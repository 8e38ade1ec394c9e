#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "Connection.h"

namespace binder {

class Endpoint;

/**
 * The thread that accepts connections, serves control messages and sends what others could not send
 * at once. It never waits for a peer, never runs code of the library's users and holds no lock
 * while it reads or writes.
 */
class IoThread {
  public:
    enum class Role {
        kSender,    // only sends what the connection keeps
        kGreeting,  // waits for the hello
        kParked,    // has said hello; waits for its peer's control connection
        kControl,
    };

    static IoThread& get();

    /** Called once, by the endpoint. False, logged, when the system has no room for it. */
    bool start(Endpoint& endpoint);

    // Any thread.
    void watch(const std::shared_ptr<Connection>& connection, Role role);
    void remove(const Connection& connection);
    /** Flushes the connection whenever its socket has room, until roomFound(). */
    void watchForRoom(const std::shared_ptr<Connection>& connection);
    void roomFound(const Connection& connection);

  private:
    struct Watch {
        std::shared_ptr<Connection> connection;
        Role role;
        bool forRoom;
    };

    static uint32_t eventsOf(const Watch& watch);

    void run();
    void serve(uint64_t id, uint32_t events);
    void acceptAll();
    void greet(const std::shared_ptr<Connection>& connection);
    void greetParked();
    void readControl(const std::shared_ptr<Connection>& connection);
    void end(const std::shared_ptr<Connection>& connection);

    Endpoint* mEndpoint = nullptr;
    android::base::unique_fd mEpoll;

    std::mutex mLock;
    std::unordered_map<uint64_t, Watch> mWatches GUARDED_BY(mLock);
};

}  // namespace binder
