#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <sys/types.h>

#include "transport/Account.h"
#include "transport/Message.h"

namespace binder {

enum class Received { kMessage, kNotYet, kEnd, kMalformed };

/** How long to wait for a message. */
struct Wait {
    using Clock = std::chrono::steady_clock;

    enum class Kind { kNo, kBriefly, kUntilThere };
    Kind kind = Kind::kNo;
    std::optional<Clock::time_point> deadline = std::nullopt;  // of kUntilThere
};

/** Puts together the messages that come over one connection's socket. For one thread at a time. */
class Receiver {
  public:
    Receiver(int socket, ConnectionKind kind, pid_t peer, std::shared_ptr<Account> account);

    /**
     * Reads one message; what has arrived of it when the wait is over is kept, on the account, and
     * kNotYet returned. After kMalformed, which is logged, the connection is of no more use.
     */
    Received receive(Incoming* message, const Wait& wait);

  private:
    Received receiveSome(bool waits);
    /** Checks the header and makes room for the body, whose beginning was read ahead. */
    const char* startBody(std::span<const uint8_t> ahead);
    size_t missing() const;
    /** Takes what is left unfinished on the account; false when that is too much. */
    bool charge();
    Received malformed(const char* why) const;

    const int mSocket;
    const ConnectionKind mKind;
    const pid_t mPeer;
    const std::shared_ptr<Account> mAccount;

    Incoming mArriving;
    size_t mArrived = 0;
    uint8_t* mData = nullptr;
    Charge mDescriptors;
    Charge mBytes;
};

/** Logs why a connection of the process is of no more use. */
void logMalformed(pid_t peer, const char* why);

}  // namespace binder
