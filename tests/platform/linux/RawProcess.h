#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include "host/platform/src/transport/Wire.h"
#include "tests/support/ProcessHarness.h"

/** A process of the user that speaks the transport's bytes by itself, well or ill. */
namespace platformtest {

using android::base::unique_fd;
using binder::ConnectionKind;
using binder::Header;
using binder::MessageKind;
using binder::ObjectRecord;
using Bytes = std::vector<uint8_t>;

template <typename T>
void append(const T& value, Bytes* bytes) {
    const auto* const begin = reinterpret_cast<const uint8_t*>(&value);
    bytes->insert(bytes->end(), begin, begin + sizeof(value));
}

inline Bytes bytesOf(const AParcel* parcel) {
    Bytes bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    EXPECT_EQ(AParcel_marshal(parcel, bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
}

/** The name of an endpoint of this process, though nobody listens there. */
inline std::string ownName(int number = 0) {
    return std::to_string(getpid()) + ".0123456789abcde" + std::to_string(number);
}

inline Header headerOf(MessageKind kind, transaction_code_t code = FIRST_CALL_TRANSACTION,
                       uint64_t object = 0) {
    Header header{};
    header.kind = kind;
    header.code = code;
    header.object = object;
    return header;
}

inline ObjectRecord binderAt(uint32_t offset, const std::string& endpoint, uint64_t id = 12345) {
    ObjectRecord record{
            .kind = ObjectRecord::Kind::kBinder, .offset = offset, .id = id, .endpoint = {}};
    endpoint.copy(record.endpoint, sizeof(record.endpoint));
    return record;
}

inline ObjectRecord descriptorAt(uint32_t offset) {
    return {.kind = ObjectRecord::Kind::kDescriptor, .offset = offset, .id = 0, .endpoint = {}};
}

/** The 24 bytes where the object of a record lies, and the word of stability behind a binder's. */
inline void appendObject(char kind, Bytes* data) {
    const auto letter = static_cast<uint32_t>(kind);
    const uint32_t other = kind == 's' ? 'b' : 'd';
    for (const uint32_t word : {letter << 24 | other << 16 | '*' << 8 | 0x85, 0U, 1U, 0U, 0U, 0U})
        append(word, data);
    if (kind == 's') append(12U, data);
}

/** A whole message with the records' sizes and counts filled in. */
inline Bytes messageOf(Header header, const Bytes& data = {},
                       const std::vector<ObjectRecord>& records = {}) {
    header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount = static_cast<uint32_t>(records.size());
    Bytes bytes;
    append(header, &bytes);
    bytes.insert(bytes.end(), data.begin(), data.end());
    const Bytes table = binder::bytesOf({.objects = records, .waiting = {}});
    bytes.insert(bytes.end(), table.begin(), table.end());
    return bytes;
}

inline unique_fd connectRaw(const std::filesystem::path& path) {
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return socket;
}

inline void sendBytes(int socket, const Bytes& bytes, const std::vector<int>& descriptors = {}) {
    iovec buffer{const_cast<uint8_t*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(253 * sizeof(int))];
    if (!descriptors.empty()) {
        const size_t size = descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(size);
        memcpy(CMSG_DATA(header), descriptors.data(), size);
    }
    // The peer may have ended the connection already.
    static_cast<void>(sendmsg(socket, &message, MSG_NOSIGNAL));
}

/** Reads until the peer ends the connection; false when it does not. */
inline bool ends(int socket) {
    const timeval limit{.tv_sec = 30, .tv_usec = 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    char buffer[256];
    ssize_t got;
    while ((got = recv(socket, buffer, sizeof(buffer), 0)) > 0) {
    }
    return got == 0 || errno == ECONNRESET;
}

/** A message that the process of the socket sent. */
struct Answer {
    Bytes bytes;
    binder::Message message;  // views into the bytes
    std::vector<unique_fd> descriptors;
};
inline std::optional<Answer> answerOf(int socket) {
    Answer answer;
    answer.bytes.resize(sizeof(Header));
    iovec buffer{answer.bytes.data(), sizeof(Header)};
    alignas(cmsghdr) char control[CMSG_SPACE(binder::kMaxDescriptors * sizeof(int))];
    msghdr received{};
    received.msg_iov = &buffer;
    received.msg_iovlen = 1;
    received.msg_control = control;
    received.msg_controllen = sizeof(control);
    if (recvmsg(socket, &received, MSG_WAITALL | MSG_CMSG_CLOEXEC) != sizeof(Header)) {
        return std::nullopt;
    }
    if (const cmsghdr* const rights = CMSG_FIRSTHDR(&received); rights != nullptr) {
        std::vector<int> fds((rights->cmsg_len - CMSG_LEN(0)) / sizeof(int));
        memcpy(fds.data(), CMSG_DATA(rights), fds.size() * sizeof(int));
        for (const int fd : fds)
            answer.descriptors.emplace_back(fd);
    }
    Header header;
    memcpy(&header, answer.bytes.data(), sizeof(header));
    const size_t size = header.dataSize + binder::tableSizeOf(header);
    answer.bytes.resize(sizeof(Header) + size);
    if (size > 0 && recv(socket, answer.bytes.data() + sizeof(Header), size, MSG_WAITALL) !=
                            static_cast<ssize_t>(size)) {
        return std::nullopt;
    }
    const auto parsed = binder::parseMessage(answer.bytes, ConnectionKind::kCall);
    if (!parsed.has_value()) return std::nullopt;
    answer.message = *parsed;
    return answer;
}
inline std::optional<Answer> ask(int socket, const Bytes& call,
                                 const std::vector<int>& descriptors = {}) {
    sendBytes(socket, call, descriptors);
    return answerOf(socket);
}
inline binder_status_t statusOf(const std::optional<Answer>& answer) {
    const bool isReply = answer.has_value() && answer->message.header.kind == MessageKind::kReply;
    return isReply ? static_cast<binder_status_t>(answer->message.header.code)
                   : STATUS_UNKNOWN_ERROR;
}

/** What leads the data of every call of the interface. */
inline Bytes tokenOf(const char* interface) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    for (const int32_t word : {INT32_MIN, -1, 'S' << 24 | 'Y' << 16 | 'S' << 8 | 'T'})
        EXPECT_EQ(AParcel_writeInt32(parcel.get(), word), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::string(interface)), STATUS_OK);
    return bytesOf(parcel.get());
}

inline std::filesystem::path socketOf(pid_t pid) {
    for (const auto& entry : std::filesystem::directory_iterator(harness::runtimeFolder())) {
        const std::string name = entry.path().filename();
        if (name.starts_with(std::to_string(pid) + ".")) return entry.path();
    }
    return {};
}

/** The record of a service's object and an end of its pipe, as anybody gets them. */
inline std::optional<Answer> lookUp(const char* name) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::string(name)), STATUS_OK);
    Bytes data = tokenOf("binder.ServiceManager");
    const Bytes argument = bytesOf(parcel.get());
    data.insert(data.end(), argument.begin(), argument.end());
    auto answer =
            ask(connectRaw(socketOf(getpid())),
                messageOf(headerOf(MessageKind::kCall, 2, binder::kServiceManagerObject), data));
    EXPECT_TRUE(answer.has_value() && answer->message.table.objects.size() == 1);
    return answer;
}

/** The number of the target's object. */
inline uint64_t targetObject() {
    const auto answer = lookUp("target");
    return answer.has_value() ? answer->message.table.objects.at(0).id : 0;
}

}  // namespace platformtest
