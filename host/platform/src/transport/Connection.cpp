#include "transport/Connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "base/Log.h"

namespace binder {
namespace {

using android::base::unique_fd;

// What is read at once of a message, header and body: most messages whole.
constexpr size_t kReadAtOnce = 8 * 1024;
thread_local std::array<uint8_t, kReadAtOnce> gArrived;

// Up to this size, to put a message together costs less than to have the kernel do it.
constexpr size_t kSentAtOnce = 4 * 1024;

using Control = std::array<char, CMSG_SPACE(kMaxDescriptors * sizeof(int))>;

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
template <typename Descriptors>
ssize_t sendSome(int socket, std::span<const iovec> buffers, const Descriptors& descriptors,
                 size_t sent, int flags) {
    std::array<iovec, 3> rest;
    msghdr message{};
    message.msg_iov = rest.data();
    message.msg_iovlen = skip(buffers, sent, rest);
    const std::span<const iovec> left(rest.data(), message.msg_iovlen);
    if (descriptors.empty() && sizeOf(left) <= kSentAtOnce) {
        return sendTogether(socket, left, flags);
    }

    alignas(cmsghdr) Control control;
    if (sent == 0 && !descriptors.empty()) {
        const size_t size = descriptors.size() * sizeof(int);
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(size);
        for (size_t i = 0; i < descriptors.size(); ++i) {
            const int fd = descriptors[i];
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

std::vector<unique_fd> descriptorsOf(msghdr& message) {
    std::vector<unique_fd> descriptors;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof(fd));
            descriptors.emplace_back(fd);
        }
    }
    return descriptors;
}

}  // namespace

size_t shareOfDescriptors(size_t part) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return kMaxDescriptors;
    return std::max<size_t>(limit.rlim_cur / part, kMaxDescriptors);
}

bool UnfinishedDescriptors::add(size_t count) {
    return mCount.fetch_add(count, std::memory_order_relaxed) + count <= shareOfDescriptors(4);
}

Connection::Connection(unique_fd socket, ConnectionKind kind, pid_t peerPid, uid_t peerUid)
    : mSocket(std::move(socket)), mKind(kind), mPeerPid(peerPid), mPeerUid(peerUid) {}

Connection::~Connection() {
    forgetUnfinished();
}

void Connection::countUnfinished(std::shared_ptr<UnfinishedDescriptors> unfinished) {
    mUnfinished = std::move(unfinished);
}

void Connection::setBriefWait(std::chrono::microseconds time) {
    const timeval limit{.tv_sec = 0, .tv_usec = time.count()};
    setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

bool Connection::malformed(const char* why) const {
    log(ANDROID_LOG_WARN, "Ending a connection of process %d: %s", mPeerPid, why);
    return false;
}

bool Connection::noteUnfinished() {
    if (mUnfinished == nullptr || mNoted != 0 || mArriving.descriptors.empty()) return true;
    mNoted = mArriving.descriptors.size();
    return mUnfinished->add(mNoted);
}

void Connection::forgetUnfinished() {
    if (mNoted != 0) mUnfinished->remove(std::exchange(mNoted, 0));
}

const char* Connection::startBody(std::span<const uint8_t> ahead) {
    Incoming& message = mArriving;
    if (const char* const fault = checkHeader(message.header, mKind)) return fault;
    const size_t dataSize = message.header.dataSize;
    const size_t tableSize = message.header.tableSize;
    if (ahead.size() > dataSize + tableSize) return "bytes behind a message";
    message.table.resize(tableSize);
    if (mKind != ConnectionKind::kControl) {
        message.parcel = std::make_unique<AParcel>();
        mData = message.parcel->resetForReceive(dataSize);
        if (mData == nullptr) return "no memory for a message";
        std::copy_n(ahead.data(), std::min(ahead.size(), dataSize), mData);
    }
    if (ahead.size() > dataSize) {
        std::copy(ahead.begin() + static_cast<ptrdiff_t>(dataSize), ahead.end(),
                  message.table.begin());
    }
    return nullptr;
}

Connection::Received Connection::receiveSome(bool waits) {
    Incoming& arriving = mArriving;
    std::array<iovec, 2> buffers{};
    const size_t headerMissing = sizeof(Header) - std::min(mArrived, sizeof(Header));
    if (headerMissing != 0) {
        // One message at a time is under way on such a connection: what follows is its body.
        const bool isAlone = mKind == ConnectionKind::kCall;
        buffers[0] = {gArrived.data(), isAlone ? gArrived.size() : headerMissing};
    } else {
        const size_t at = mArrived - sizeof(Header);
        const size_t dataSize = arriving.header.dataSize;
        const size_t inData = std::min(at, dataSize);
        const size_t inTable = at - inData;
        if (inData < dataSize) buffers[0] = {mData + inData, dataSize - inData};
        if (inTable < arriving.table.size()) {
            buffers[1] = {arriving.table.data() + inTable, arriving.table.size() - inTable};
        }
    }
    alignas(cmsghdr) Control control;
    msghdr header{};
    header.msg_iov = buffers.data();
    header.msg_iovlen = buffers[1].iov_len == 0 ? 1 : buffers.size();
    // Descriptors come with the first byte of a transaction: others are not let in.
    const bool mayBringDescriptors = mArrived == 0 && mKind != ConnectionKind::kControl;
    if (mayBringDescriptors) {
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
    const ssize_t result = recvmsg(fd(), &header, MSG_CMSG_CLOEXEC | (waits ? 0 : MSG_DONTWAIT));
    if (result < 0) {
        if (errno == EINTR) return Received::kMessage;  // no less than before
        return errno == EAGAIN ? Received::kNotYet : Received::kEnd;
    }
    if (result == 0) {
        if (mArrived == 0) return Received::kEnd;
        malformed("message cut short");
        return Received::kMalformed;
    }
    const char* fault = nullptr;
    if (mayBringDescriptors) {
        arriving.descriptors = descriptorsOf(header);
        arriving.descriptorsLost = (header.msg_flags & MSG_CTRUNC) != 0;
    } else if ((header.msg_flags & MSG_CTRUNC) != 0) {
        fault = "descriptors where there are to be none";
    }
    const size_t got = static_cast<size_t>(result);
    if (headerMissing != 0) {
        const size_t inHeader = std::min(got, headerMissing);
        memcpy(reinterpret_cast<char*>(&arriving.header) + mArrived, gArrived.data(), inHeader);
        if (fault == nullptr && inHeader == headerMissing) {
            fault = startBody({gArrived.data() + inHeader, got - inHeader});
        }
    }
    mArrived += got;
    if (fault == nullptr) return Received::kMessage;
    malformed(fault);
    return Received::kMalformed;
}

Connection::Received Connection::receive(Incoming* message, Wait wait) {
    Incoming& arriving = mArriving;
    while (mArrived < sizeof(Header) ||
           mArrived < sizeof(Header) + arriving.header.dataSize + arriving.table.size()) {
        // A brief wait is for a message to begin: one that comes in small pieces holds no thread.
        const bool waits = wait == Wait::kUntilThere || (wait == Wait::kBriefly && mArrived == 0);
        const Received received = receiveSome(waits);
        if (received == Received::kMessage) continue;
        if (received != Received::kNotYet) return received;
        if (wait == Wait::kUntilThere) {
            // The socket's own limit is for brief waits.
            pollfd event{.fd = fd(), .events = POLLIN, .revents = 0};
            poll(&event, 1, -1);
            continue;
        }
        if (noteUnfinished()) return Received::kNotYet;
        malformed("too many descriptors in unfinished messages");
        return Received::kMalformed;
    }
    if (!arriving.descriptorsLost &&
        arriving.descriptors.size() != arriving.header.descriptorCount) {
        malformed("wrong number of descriptors");
        return Received::kMalformed;
    }
    forgetUnfinished();
    *message = std::exchange(arriving, Incoming{});
    mArrived = 0;
    return Received::kMessage;
}

bool Connection::watchLocked() {
    const uint32_t events =
            (mReceives ? uint32_t{EPOLLIN} : 0) | (mKept.empty() ? 0 : uint32_t{EPOLLOUT});
    if (events != 0) return IoThread::get().watch(shared_from_this(), events);
    IoThread::get().forget(*this);
    return true;
}

bool Connection::receiveWith(std::function<void()> onReadable) {
    mOnReadable = std::move(onReadable);
    const std::lock_guard lock(mSendLock);
    mReceives = true;
    return watchLocked();
}

void Connection::stopReceiving() {
    const std::lock_guard lock(mSendLock);
    mReceives = false;
    IoThread::get().forget(*this);
}

void Connection::onEvents(uint32_t events) {
    bool receives;
    {
        const std::lock_guard lock(mSendLock);
        receives = mReceives;
    }
    // Whoever receives finds an end that comes meanwhile.
    if ((events & EPOLLOUT) != 0 || !receives) flush();
    if (receives && (events & ~uint32_t{EPOLLOUT}) != 0) mOnReadable();
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
    if (sent == 0) {
        for (const int fd : message.descriptors) {
            kept.descriptors.emplace_back(fcntl(fd, F_DUPFD_CLOEXEC, 0));
            if (kept.descriptors.back() < 0) return Sent::kRefused;
        }
    }
    mKeptBytes += size - sent;
    mKept.push_back(std::move(kept));
    if (mKept.size() > 1 || watchLocked()) return Sent::kDone;
    mKeptBytes -= size - sent;
    mKept.pop_back();
    return sent == 0 ? Sent::kRefused : Sent::kBroken;
}

void Connection::flush() {
    const std::lock_guard lock(mSendLock);
    while (!mKept.empty()) {
        Kept& kept = mKept.front();
        const std::array<iovec, 1> buffer = {iovec{kept.bytes.data(), kept.bytes.size()}};
        const ssize_t result = sendSome(fd(), buffer, kept.descriptors, kept.sent, MSG_DONTWAIT);
        if (result < 0) {
            if (errno == EAGAIN) return;
            // Half a message may be out, or the peer waits for one: both end with the connection.
            mKept.clear();
            mKeptBytes = 0;
            shutdown();
            break;
        }
        kept.sent += static_cast<size_t>(result);
        mKeptBytes -= static_cast<size_t>(result);
        if (kept.sent == kept.bytes.size()) mKept.pop_front();
    }
    if (!watchLocked()) shutdown();
}

void Connection::shutdown() const {
    ::shutdown(fd(), SHUT_RDWR);
}

}  // namespace binder
