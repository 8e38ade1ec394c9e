#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "transport/Account.h"
#include "transport/Message.h"

namespace binder {

enum class Sent { kDone, kNoRoom, kRefused, kBroken };

/** Sends the message whole, waiting for room; kRefused when the descriptors cannot be passed. */
Sent sendWaiting(int socket, const Outgoing& message);

/** Sends over one connection's socket what its other side has yet to make room for. One thread. */
class SendQueue {
  public:
    SendQueue(int socket, std::shared_ptr<Account> account);

    bool isEmpty() const { return mKept.empty(); }
    /**
     * Sends without waiting; what does not fit the socket is kept, up to limit bytes in all and on
     * the account. kNoRoom and kRefused: nothing was sent or kept.
     */
    Sent send(const Outgoing& message, size_t limit);
    /**
     * Sends what is kept, as far as there is room: kDone when that is all, kNoRoom when the socket
     * has none, kRefused when the system has none at the moment.
     */
    Sent flush();
    /** Undoes the last send(), of which nothing is out; kBroken when something is. */
    Sent takeBack();
    void clear();

  private:
    struct Kept {
        std::vector<uint8_t> bytes;
        std::vector<Outgoing::Descriptor> descriptors;
        size_t sent = 0;
        Charge charged;
        Charge chargedDescriptors;
    };

    /** Keeps the message, of which so much is sent. */
    Sent keep(const Outgoing& message, size_t sent);

    const int mSocket;
    const std::shared_ptr<Account> mAccount;
    std::deque<Kept> mKept;
    size_t mKeptBytes = 0;
};

}  // namespace binder
