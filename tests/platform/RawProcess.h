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
using binder::Hello;
using binder::MessageKind;
using binder::ObjectRecord;
using Bytes = std::vector<uint8_t>;

template <typename T>
void append(const T& value, Bytes* bytes) {
    const auto* const begin = reinterpret_cast<const uint8_t*>(&value);
    bytes->insert(bytes->end(), begin, begin + sizeof(value));
}

inline Bytes words(const std::vector<uint32_t>& values) {
    Bytes bytes;
    for (const uint32_t value : values)
        append(value, &bytes);
    return bytes;
}

inline Bytes bytesOf(const AParcel* parcel) {
    Bytes bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    EXPECT_EQ(AParcel_marshal(parcel, bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
}

/** A name that this process may claim, though nobody listens there. */
inline std::string claimedName() {
    return std::to_string(getpid()) + ".0123456789abcdef";
}

inline Bytes helloOf(ConnectionKind kind, const std::string& name) {
    Hello hello{.magic = Hello::kMagic, .kind = kind, .endpoint = {}};
    name.copy(hello.endpoint, sizeof(hello.endpoint));
    Bytes bytes;
    append(hello, &bytes);
    return bytes;
}

inline Header headerOf(MessageKind kind) {
    Header header{};
    header.magic = Header::kMagic;
    header.kind = kind;
    header.code = FIRST_CALL_TRANSACTION;
    return header;
}

/** A whole message with the records' sizes and counts filled in. */
inline Bytes messageOf(Header header, const Bytes& data, const std::vector<ObjectRecord>& records) {
    Bytes table;
    for (const ObjectRecord& record : records)
        binder::appendRecord(record, &table);
    header.dataSize = static_cast<uint32_t>(data.size());
    header.tableSize = static_cast<uint32_t>(table.size());
    header.objectCount = static_cast<uint32_t>(records.size());
    Bytes bytes;
    append(header, &bytes);
    bytes.insert(bytes.end(), data.begin(), data.end());
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

/** A connection after a correct hello. */
inline unique_fd introduce(const std::filesystem::path& path, ConnectionKind kind) {
    unique_fd socket = connectRaw(path);
    sendBytes(socket, helloOf(kind, claimedName()));
    return socket;
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
};
inline std::optional<Answer> answerOf(int socket) {
    Answer answer;
    answer.bytes.resize(sizeof(Header));
    if (recv(socket, answer.bytes.data(), sizeof(Header), MSG_WAITALL) != sizeof(Header)) {
        return std::nullopt;
    }
    Header header;
    memcpy(&header, answer.bytes.data(), sizeof(header));
    const size_t size = size_t{header.dataSize} + header.tableSize;
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

/** The data of a call of the interface, as far as the service manager's lookup needs it. */
inline Bytes lookupOf(const char* name) {
    static AIBinder_Class* const manager = AIBinder_Class_define(
            "binder.ServiceManager", [](void*) -> void* { return nullptr; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    const ndk::SpAIBinder binder(AIBinder_new(manager, nullptr));
    ndk::ScopedAParcel parcel;
    EXPECT_EQ(AIBinder_prepareTransaction(binder.get(), parcel.getR()), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::string(name)), STATUS_OK);
    return bytesOf(parcel.get());
}

/** Connections to a process without anything of the library's on this side. */
struct Raw {
    // A process makes no other connection before it has introduced itself over the first.
    explicit Raw(const std::filesystem::path& path)
        : control(introduce(path, ConnectionKind::kControl)),
          call(introduce(path, ConnectionKind::kCall)) {}
    /** The name can be claimed again once the process has forgotten it. */
    ~Raw() {
        shutdown(control, SHUT_WR);
        EXPECT_TRUE(ends(control));
    }

    unique_fd control;
    unique_fd call;
};

/** Looks a name up: the record of its object, and whose it is. */
inline std::optional<Answer> lookUp(const Raw& manager, const char* name) {
    Header header = headerOf(MessageKind::kCall);
    header.code = 2;
    header.object = binder::kServiceManagerObject;
    sendBytes(manager.call, messageOf(header, lookupOf(name), {}));
    return answerOf(manager.call);
}

inline std::filesystem::path socketOf(pid_t pid) {
    for (const auto& entry : std::filesystem::directory_iterator(harness::runtimeFolder())) {
        const std::string name = entry.path().filename();
        if (name.starts_with(std::to_string(pid) + ".")) return entry.path();
    }
    return {};
}

/** The number of the target's object, as anybody gets it from the service manager. */
inline uint64_t targetObject() {
    const Raw manager(socketOf(getpid()));
    const auto answer = lookUp(manager, "target");
    EXPECT_TRUE(answer.has_value() && answer->message.objects.size() == 1);
    return answer.has_value() ? answer->message.objects.at(0).id : 0;
}

}  // namespace platformtest
