#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <sys/socket.h>

#include <android-base/unique_fd.h>

#include "transport/IoThread.h"

namespace binder {

/** Accepts the connections of others that may talk to us. Used by the I/O thread. */
class Listener final : public Watched, public std::enable_shared_from_this<Listener> {
  public:
    using OnAccepted =
            std::function<void(android::base::unique_fd socket, const ucred& credentials)>;

    /** The socket, which listens, outlives it. */
    Listener(int socket, OnAccepted onAccepted);

    /** Begins to accept. False, logged, on failure. */
    [[nodiscard]] bool start();

    int fd() const override { return mSocket; }
    void onEvents(uint32_t events) override;

  private:
    /** False when no further connection can be taken out of the queue now. */
    bool refuseOne();
    /** Does not accept for a while. */
    void pause();

    const int mSocket;
    const OnAccepted mOnAccepted;
    android::base::unique_fd mSpare;  // lets one connection be refused when descriptors run out
    std::chrono::steady_clock::time_point mLastComplaint{};
};

}  // namespace binder
