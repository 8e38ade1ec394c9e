#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include <android-base/unique_fd.h>

#include "transport/Connection.h"
#include "transport/Endpoint.h"

namespace binder {

/**
 * Accepts the connections of others and finds out who they are: a connection has to begin with its
 * hello, and the socket's credentials have to agree. They are greeted in the order in which they
 * connected, so that a process's control connection, which it makes and introduces first, is here
 * before its others. Used by the I/O thread.
 */
class Greeter final : public Watched, public std::enable_shared_from_this<Greeter> {
  public:
    /** Takes over a greeted connection of the named process. */
    using OnGreeted =
            std::function<void(const std::string& name, std::shared_ptr<Connection> connection)>;

    Greeter(const Endpoint& self, OnGreeted onGreeted);

    /** Begins to accept. False, logged, on failure. */
    [[nodiscard]] bool start();

    /** Greets all that have connected and said who they are by now. */
    void greetAll();

    int fd() const override { return mSelf.listener(); }
    void onEvents(uint32_t events) override;

  private:
    class Newcomer;
    using Newcomers = std::list<std::shared_ptr<Newcomer>>;

    void accept();
    /** False when no further connection can be taken out of the queue now. */
    bool refuseOne();
    /** Does not accept for a while. */
    void pause();

    const Endpoint& mSelf;
    const OnGreeted mOnGreeted;
    android::base::unique_fd mSpare;  // lets one connection be refused when descriptors run out
    bool mIsPaused = false;
    std::chrono::steady_clock::time_point mLastComplaint{};
    Newcomers mNewcomers;  // in the order in which they connected
};

}  // namespace binder
