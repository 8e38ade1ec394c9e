#include "transport/SendQueue.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace binder {
namespace {

using android::base::unique_fd;

// Up to this size, to put a message together costs less than to have the kernel do it.
constexpr size_t kSentAtOnce = 4 * 1024;

using Buffers = std::array<iovec, 3>;
using Descriptors = std::span<const Outgoing::Descriptor>;

/** The part of the buffers that begins at offset. */
std::span<const iovec> skip(std::span<const iovec> buffers, size_t offset, Buffers* rest) {
    size_t count = 0;
    for (const iovec& buffer : buffers) {
        if (offset >= buffer.iov_len) {
            offset -= buffer.iov_len;
            continue;
        }
        rest->at(count++) = {static_cast<char*>(buffer.iov_base) + offset, buffer.iov_len - offset};
        offset = 0;
    }
    return {rest->data(), count};
}

size_t sizeOf(std::span<const iovec> buffers) {
    size_t size = 0;
    for (const iovec& buffer : buffers)
        size += buffer.iov_len;
    return size;
}

/** One send of the buffers, which are small. */
ssize_t sendTogether(int socket, std::span<const iovec> buffers, int flags) {
    std::array<uint8_t, kSentAtOnce> bytes;
    size_t size = 0;
    for (const iovec& buffer : buffers) {
        memcpy(bytes.data() + size, buffer.iov_base, buffer.iov_len);
        size += buffer.iov_len;
    }
    ssize_t result;
    do {
        result = ::send(socket, bytes.data(), size, flags | MSG_NOSIGNAL);
    } while (result < 0 && errno == EINTR);
    return result;
}

/** One send of what follows the first `sent` bytes; the descriptors go with the first byte. */
ssize_t sendSome(int socket, std::span<const iovec> buffers, Descriptors descriptors, size_t sent,
                 int flags) {
    Buffers rest;
    const std::span<const iovec> left = skip(buffers, sent, &rest);
    const bool bringsDescriptors = sent == 0 && !descriptors.empty();
    if (!bringsDescriptors && sizeOf(left) <= kSentAtOnce) return sendTogether(socket, left, flags);

    msghdr message{};
    message.msg_iov = rest.data();
    message.msg_iovlen = left.size();
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMaxDescriptors * sizeof(int))> control;
    if (bringsDescriptors) {
        const size_t size = descriptors.size() * sizeof(int);
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(size);
        for (size_t i = 0; i < descriptors.size(); ++i) {
            memcpy(CMSG_DATA(header) + i * sizeof(int), &descriptors[i].fd, sizeof(int));
        }
    }
    ssize_t result;
    do {
        result = sendmsg(socket, &message, flags | MSG_NOSIGNAL);
    } while (result < 0 && errno == EINTR);
    return result;
}

Buffers buffersOf(const Outgoing& message) {
    return {iovec{const_cast<Header*>(&message.header), sizeof(message.header)},
            iovec{const_cast<uint8_t*>(message.data.data()), message.data.size()},
            iovec{const_cast<uint8_t*>(message.table.data()), message.table.size()}};
}

Sent failureOf(int error) {
    const bool peerIsGone = error == EPIPE || error == ECONNRESET || error == ENOTCONN;
    return peerIsGone ? Sent::kBroken : Sent::kRefused;
}

}  // namespace

Sent sendWaiting(int socket, const Outgoing& message) {
    const Buffers buffers = buffersOf(message);
    for (size_t sent = 0; sent < message.size();) {
        const ssize_t result = sendSome(socket, buffers, message.descriptors, sent, 0);
        if (result < 0) return sent == 0 ? failureOf(errno) : Sent::kBroken;
        sent += static_cast<size_t>(result);
    }
    return Sent::kDone;
}

SendQueue::SendQueue(int socket, std::shared_ptr<Account> account)
    : mSocket(socket), mAccount(std::move(account)) {}

Sent SendQueue::send(const Outgoing& message, size_t limit) {
    const Buffers buffers = buffersOf(message);
    const size_t size = message.size();
    size_t sent = 0;
    while (mKept.empty() && sent < size) {
        const ssize_t result = sendSome(mSocket, buffers, message.descriptors, sent, MSG_DONTWAIT);
        if (result < 0 && (errno == EAGAIN || sent > 0)) break;
        if (result < 0) return failureOf(errno);
        sent += static_cast<size_t>(result);
    }
    if (sent == size) return Sent::kDone;
    if (sent == 0 && mKeptBytes + size > limit) return Sent::kNoRoom;
    return keep(message, sent);
}

Sent SendQueue::keep(const Outgoing& message, size_t sent) {
    Kept kept;
    kept.sent = sent;
    kept.charged = Charge(mAccount, Resource::kBytes, message.size());
    if (!kept.charged.isMade()) return sent == 0 ? Sent::kNoRoom : Sent::kBroken;
    kept.bytes.reserve(message.size());
    for (const iovec& buffer : buffersOf(message)) {
        const auto* const bytes = static_cast<const uint8_t*>(buffer.iov_base);
        kept.bytes.insert(kept.bytes.end(), bytes, bytes + buffer.iov_len);
    }
    if (sent == 0 && !message.descriptors.empty()) {
        kept.chargedDescriptors =
                Charge(mAccount, Resource::kDescriptors, message.descriptors.size());
        if (!kept.chargedDescriptors.isMade()) return Sent::kNoRoom;
        for (const auto& [fd, held] : message.descriptors) {
            SharedFd own = held;
            if (own == nullptr) {
                own = std::make_shared<unique_fd>(fcntl(fd, F_DUPFD_CLOEXEC, 0));
            }
            if (*own < 0) return Sent::kRefused;
            kept.descriptors.push_back({own->get(), own});
        }
    }
    mKeptBytes += message.size() - sent;
    mKept.push_back(std::move(kept));
    return Sent::kDone;
}

Sent SendQueue::flush() {
    while (!mKept.empty()) {
        Kept& kept = mKept.front();
        const std::array<iovec, 1> buffer = {iovec{kept.bytes.data(), kept.bytes.size()}};
        const ssize_t result = sendSome(mSocket, buffer, kept.descriptors, kept.sent, MSG_DONTWAIT);
        if (result < 0) return errno == EAGAIN ? Sent::kNoRoom : failureOf(errno);
        kept.sent += static_cast<size_t>(result);
        mKeptBytes -= static_cast<size_t>(result);
        if (kept.sent == kept.bytes.size()) mKept.pop_front();
    }
    return Sent::kDone;
}

Sent SendQueue::takeBack() {
    const bool isOut = mKept.back().sent > 0;
    mKeptBytes -= mKept.back().bytes.size() - mKept.back().sent;
    mKept.pop_back();
    return isOut ? Sent::kBroken : Sent::kRefused;
}

void SendQueue::clear() {
    mKept.clear();
    mKeptBytes = 0;
}

}  // namespace binder
