#include "transport/Receiver.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include "base/Log.h"

namespace binder {
namespace {

using android::base::unique_fd;
using Kind = Wait::Kind;

// What is read at once of a message, header and body: most messages whole.
constexpr size_t kReadAtOnce = 8 * 1024;
thread_local std::array<uint8_t, kReadAtOnce> gArrived;

using Control = std::array<char, CMSG_SPACE(kMaxDescriptors * sizeof(int))>;

std::vector<unique_fd> takeDescriptors(msghdr& message) {
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

/** False past the deadline. */
bool awaitBytes(int socket, const std::optional<Wait::Clock::time_point>& deadline) {
    int time = -1;
    if (deadline.has_value()) {
        const auto left = *deadline - Wait::Clock::now();
        time = static_cast<int>(
                std::max<int64_t>(std::chrono::ceil<std::chrono::milliseconds>(left).count(), 0));
    }
    pollfd event{.fd = socket, .events = POLLIN, .revents = 0};
    return poll(&event, 1, time) != 0;
}

}  // namespace

void logMalformed(pid_t peer, const char* why) {
    complain(ANDROID_LOG_WARN, "Ending a connection of process %d: %s", peer, why);
}

Receiver::Receiver(int socket, ConnectionKind kind, pid_t peer, std::shared_ptr<Account> account)
    : mSocket(socket), mKind(kind), mPeer(peer), mAccount(std::move(account)) {}

Received Receiver::malformed(const char* why) const {
    logMalformed(mPeer, why);
    return Received::kMalformed;
}

size_t Receiver::missing() const {
    if (mArrived < sizeof(Header)) return sizeof(Header) - mArrived;
    return sizeof(Header) + mArriving.header.dataSize + mArriving.table.size() - mArrived;
}

bool Receiver::charge() {
    if (mArrived >= sizeof(Header) && !mBytes.isMade()) {
        mBytes = Charge(mAccount, Resource::kBytes,
                        mArriving.header.dataSize + mArriving.table.size());
        if (!mBytes.isMade()) return false;
    }
    if (mArriving.descriptors.empty() || mDescriptors.isMade()) return true;
    mDescriptors = Charge(mAccount, Resource::kDescriptors, mArriving.descriptors.size());
    return mDescriptors.isMade();
}

const char* Receiver::startBody(std::span<const uint8_t> ahead) {
    Incoming& message = mArriving;
    if (const char* const fault = checkHeader(message.header, mKind)) return fault;
    const size_t dataSize = message.header.dataSize;
    message.table.resize(tableSizeOf(message.header));
    if (ahead.size() > dataSize + message.table.size()) return "bytes behind a message";
    message.parcel = std::make_unique<AParcel>();
    mData = message.parcel->resetForReceive(dataSize);
    if (mData == nullptr) return "no memory for a message";
    std::copy_n(ahead.data(), std::min(ahead.size(), dataSize), mData);
    if (ahead.size() > dataSize) {
        std::copy(ahead.begin() + static_cast<ptrdiff_t>(dataSize), ahead.end(),
                  message.table.begin());
    }
    return nullptr;
}

Received Receiver::receiveSome(bool waits) {
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
    // Descriptors come with the first byte of a message: others are not let in.
    const bool mayBringDescriptors = mArrived == 0;
    if (mayBringDescriptors) {
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
    const ssize_t result = recvmsg(mSocket, &header, MSG_CMSG_CLOEXEC | (waits ? 0 : MSG_DONTWAIT));
    if (result < 0) {
        if (errno == EINTR) return Received::kMessage;  // no less than before
        return errno == EAGAIN ? Received::kNotYet : Received::kEnd;
    }
    if (result == 0) return mArrived == 0 ? Received::kEnd : malformed("message cut short");
    const char* fault = nullptr;
    if (mayBringDescriptors) {
        arriving.descriptors = takeDescriptors(header);
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
    return fault == nullptr ? Received::kMessage : malformed(fault);
}

Received Receiver::receive(Incoming* message, const Wait& wait) {
    while (missing() > 0) {
        // A brief wait is for a message to begin: one that comes in small pieces holds no thread.
        const bool waits = (wait.kind == Kind::kUntilThere && !wait.deadline.has_value()) ||
                           (wait.kind == Kind::kBriefly && mArrived == 0);
        const Received received = receiveSome(waits);
        if (received == Received::kMessage) continue;
        if (received != Received::kNotYet) return received;
        // The socket's own limit is for brief waits.
        if (wait.kind == Kind::kUntilThere && awaitBytes(mSocket, wait.deadline)) continue;
        return charge() ? Received::kNotYet : malformed("too much in unfinished messages");
    }
    if (!mArriving.descriptorsLost &&
        mArriving.descriptors.size() != descriptorsOf(mArriving.header)) {
        return malformed("wrong number of descriptors");
    }
    mDescriptors = {};
    mBytes = {};
    *message = std::exchange(mArriving, Incoming{});
    mArrived = 0;
    return Received::kMessage;
}

}  // namespace binder
