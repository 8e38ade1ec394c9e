#include "Connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "IoThread.h"
#include "Peer.h"

namespace binder {
namespace {

using android::base::unique_fd;

// The kernel's limit for one sendmsg.
constexpr size_t kDescriptorsPerSend = 253;

uint64_t nextConnectionId() {
    static std::atomic<uint64_t> next{1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

/** The part of the buffers that begins at offset. */
size_t skip(std::span<const iovec> buffers, size_t offset, std::span<iovec> rest) {
    size_t count = 0;
    for (const iovec& buffer : buffers) {
        if (offset >= buffer.iov_len) {
            offset -= buffer.iov_len;
            continue;
        }
        rest[count++] = {static_cast<char*>(buffer.iov_base) + offset, buffer.iov_len - offset};
        offset = 0;
    }
    return count;
}

/**
 * One sendmsg of what follows the first `sent` bytes. More descriptors than one sendmsg takes go
 * with single bytes of the header, each its own sendmsg; so the count of sent bytes tells how many
 * are gone.
 */
template <typename Descriptors>
ssize_t sendSome(int socket, std::span<const iovec> buffers, const Descriptors& descriptors,
                 size_t sent, int flags) {
    std::array<iovec, 3> rest;
    msghdr message{};
    message.msg_iov = rest.data();
    message.msg_iovlen = skip(buffers, sent, rest);

    alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorsPerSend * sizeof(int))> control;
    const size_t first = sent * kDescriptorsPerSend;
    if (first < descriptors.size()) {
        const size_t count = std::min(descriptors.size() - first, kDescriptorsPerSend);
        if (first + count < descriptors.size()) {
            rest[0].iov_len = 1;
            message.msg_iovlen = 1;
        }
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(count * sizeof(int));
        for (size_t i = 0; i < count; ++i) {
            const int fd = descriptors[first + i];
            memcpy(CMSG_DATA(header) + i * sizeof(int), &fd, sizeof(fd));
        }
    }
    ssize_t result;
    do {
        result = sendmsg(socket, &message, flags | MSG_NOSIGNAL);
    } while (result < 0 && errno == EINTR);
    return result;
}

std::array<iovec, 3> buffersOf(const Outgoing& message) {
    return {iovec{const_cast<Header*>(&message.header), sizeof(message.header)},
            iovec{const_cast<uint8_t*>(message.data.data()), message.data.size()},
            iovec{const_cast<uint8_t*>(message.table.data()), message.table.size()}};
}

Connection::Sent failureOf(size_t sent, int error) {
    const bool peerIsGone = error == EPIPE || error == ECONNRESET || error == ENOTCONN;
    return sent == 0 && !peerIsGone ? Connection::Sent::kRefused : Connection::Sent::kBroken;
}

/** False when a descriptor was lost or the sender passes more than any message may have. */
bool takeDescriptors(const msghdr& message, std::vector<unique_fd>* descriptors) {
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(const_cast<msghdr*>(&message), header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof(fd));
            unique_fd owned(fd);
            if (descriptors->size() < kMaxDescriptors) descriptors->push_back(std::move(owned));
        }
    }
    return (message.msg_flags & MSG_CTRUNC) == 0;
}

}  // namespace

Connection::Connection(unique_fd socket, pid_t peerPid, uid_t peerUid)
    : mSocket(std::move(socket)), mId(nextConnectionId()), mPeerPid(peerPid), mPeerUid(peerUid) {}

void Connection::introduce(ConnectionKind kind, std::string peerName) {
    mKind = kind;
    mPeerName = std::move(peerName);
}

void Connection::attach(std::shared_ptr<Peer> peer) {
    mPeer = std::move(peer);
}

Connection::Received Connection::receiveHello(Hello* hello) {
    // The bytes behind the hello are somebody else's to read: ask for no more than the hello.
    mArriving.table.resize(sizeof(Hello));
    while (mArrived < sizeof(Hello)) {
        const ssize_t got = recv(fd(), mArriving.table.data() + mArrived, sizeof(Hello) - mArrived,
                                 MSG_DONTWAIT);
        if (got == 0) return Received::kEnd;
        if (got < 0) {
            if (errno == EINTR) continue;
            return errno == EAGAIN ? Received::kNotYet : Received::kEnd;
        }
        mArrived += static_cast<size_t>(got);
    }
    memcpy(hello, mArriving.table.data(), sizeof(Hello));
    mArriving = Incoming{};
    mArrived = 0;
    return Received::kMessage;
}

bool Connection::startBody(size_t ahead) {
    Incoming& message = mArriving;
    const size_t dataSize = message.header.dataSize;
    mFault = checkHeader(message.header, mKind);
    if (mFault == nullptr && ahead > dataSize + message.header.tableSize) {
        mFault = "bytes behind a message";
    }
    if (mFault != nullptr) return false;
    if (mKind == ConnectionKind::kControl) return true;

    message.table.resize(message.header.tableSize);
    if (message.parcel == nullptr) message.parcel = std::make_unique<AParcel>();
    if (ahead > dataSize) {
        std::copy_n(message.parcel->data() + dataSize, ahead - dataSize, message.table.data());
    }
    mData = message.parcel->resizeForReceive(dataSize);
    if (mData == nullptr) mFault = "no memory for a message";
    return mFault == nullptr;
}

Connection::Received Connection::receive(Incoming* message, Wait wait) {
    Incoming& arriving = mArriving;
    for (;;) {
        std::array<iovec, 2> buffers;
        size_t headerMissing = 0;
        if (mArrived < sizeof(Header)) {
            headerMissing = sizeof(Header) - mArrived;
            buffers[0] = {reinterpret_cast<char*>(&arriving.header) + mArrived, headerMissing};
            buffers[1] = {nullptr, 0};
            // One message at a time is under way on such a connection: what follows the header is
            // its body, and most bodies fit a parcel as it is.
            if (mKind == ConnectionKind::kCall) {
                if (arriving.parcel == nullptr) arriving.parcel = std::make_unique<AParcel>();
                buffers[1] = {arriving.parcel->resetForReceive(AParcel::kInlineSize),
                              AParcel::kInlineSize};
            }
        } else {
            const size_t at = mArrived - sizeof(Header);
            const size_t dataSize = arriving.header.dataSize;
            const size_t inData = std::min(at, dataSize);
            const size_t inTable = at - inData;
            buffers[0] = {mData + inData, dataSize - inData};
            buffers[1] = {arriving.table.data() + inTable, arriving.table.size() - inTable};
        }
        alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorsPerSend * sizeof(int))> control;
        msghdr header{};
        header.msg_iov = buffers.data();
        header.msg_iovlen = buffers.size();
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        // A brief wait is for a message to begin: one that comes in small pieces holds no thread.
        const bool waits = wait == Wait::kUntilThere || (wait == Wait::kBriefly && mArrived == 0);
        const ssize_t result =
                recvmsg(fd(), &header, MSG_CMSG_CLOEXEC | (waits ? 0 : MSG_DONTWAIT));
        if (result < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN) return Received::kEnd;
            if (wait != Wait::kUntilThere) return Received::kNotYet;
            // The socket's own limit is for brief waits.
            pollfd event{.fd = fd(), .events = POLLIN, .revents = 0};
            poll(&event, 1, -1);
            continue;
        }
        if (!takeDescriptors(header, &arriving.descriptors)) arriving.descriptorsLost = true;
        if (result == 0) {
            if (mArrived == 0) return Received::kEnd;
            mFault = "message cut short";
            return Received::kMalformed;
        }

        const size_t got = static_cast<size_t>(result);
        mArrived += got;
        if (mArrived < sizeof(Header)) continue;
        if (headerMissing != 0 && !startBody(got - headerMissing)) return Received::kMalformed;
        if (mArrived < sizeof(Header) + arriving.header.dataSize + arriving.table.size()) continue;
        if (!arriving.descriptorsLost &&
            arriving.descriptors.size() != arriving.header.descriptorCount) {
            mFault = "wrong number of descriptors";
            return Received::kMalformed;
        }
        *message = std::exchange(arriving, Incoming{});
        mArrived = 0;
        return Received::kMessage;
    }
}

void Connection::setBriefWait(std::chrono::microseconds time) {
    const timeval limit{.tv_sec = 0, .tv_usec = time.count()};
    setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

Connection::Sent Connection::sendWaiting(const Outgoing& message) {
    const std::array<iovec, 3> buffers = buffersOf(message);
    for (size_t sent = 0; sent < message.size();) {
        const ssize_t result = sendSome(fd(), buffers, message.descriptors, sent, 0);
        if (result < 0) return failureOf(sent, errno);
        sent += static_cast<size_t>(result);
    }
    return Sent::kDone;
}

Connection::Sent Connection::send(const Outgoing& message, size_t limit) {
    const std::array<iovec, 3> buffers = buffersOf(message);
    const size_t size = message.size();
    const std::lock_guard lock(mSendLock);
    size_t sent = 0;
    if (mKept.empty()) {
        while (sent < size) {
            const ssize_t result = sendSome(fd(), buffers, message.descriptors, sent, MSG_DONTWAIT);
            if (result < 0 && errno == EAGAIN) break;
            if (result < 0) return failureOf(sent, errno);
            sent += static_cast<size_t>(result);
        }
        if (sent == size) return Sent::kDone;
    }
    if (sent == 0 && mKeptBytes + size > limit) return Sent::kNoRoom;

    Kept kept;
    kept.sent = sent;
    kept.bytes.reserve(size);
    for (const iovec& buffer : buffers) {
        const auto* const bytes = static_cast<const uint8_t*>(buffer.iov_base);
        kept.bytes.insert(kept.bytes.end(), bytes, bytes + buffer.iov_len);
    }
    if (sent * kDescriptorsPerSend < message.descriptors.size()) {
        for (const int fd : message.descriptors) {
            kept.descriptors.emplace_back(fcntl(fd, F_DUPFD_CLOEXEC, 0));
            if (kept.descriptors.back() < 0) return failureOf(sent, errno);
        }
    }
    mKeptBytes += size - sent;
    mKept.push_back(std::move(kept));
    if (mKept.size() == 1) IoThread::get().watchForRoom(shared_from_this());
    return Sent::kDone;
}

bool Connection::flush() {
    const std::lock_guard lock(mSendLock);
    while (!mKept.empty()) {
        Kept& kept = mKept.front();
        const std::array<iovec, 1> buffer = {iovec{kept.bytes.data(), kept.bytes.size()}};
        while (kept.sent < kept.bytes.size()) {
            const ssize_t result =
                    sendSome(fd(), buffer, kept.descriptors, kept.sent, MSG_DONTWAIT);
            if (result < 0) {
                if (errno == EAGAIN) return true;
                mKept.clear();
                return false;
            }
            kept.sent += static_cast<size_t>(result);
            mKeptBytes -= static_cast<size_t>(result);
        }
        mKept.pop_front();
    }
    IoThread::get().roomFound(*this);
    return true;
}

void Connection::shutdown() {
    ::shutdown(fd(), SHUT_RDWR);
}

}  // namespace binder
