#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "host/platform/src/Wire.h"
#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

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

/** A name that this process may claim, though nobody listens there. */
std::string claimedName() {
    return std::to_string(getpid()) + ".0123456789abcdef";
}

Bytes helloOf(ConnectionKind kind, const std::string& name) {
    Hello hello{.magic = Hello::kMagic, .kind = kind, .endpoint = {}};
    name.copy(hello.endpoint, sizeof(hello.endpoint));
    Bytes bytes;
    append(hello, &bytes);
    return bytes;
}

Header headerOf(MessageKind kind) {
    Header header{};
    header.magic = Header::kMagic;
    header.kind = kind;
    header.code = FIRST_CALL_TRANSACTION;
    header.object = 1;
    return header;
}

/** A whole message with the records' sizes and counts filled in. */
Bytes messageOf(Header header, const Bytes& data, const std::vector<ObjectRecord>& records) {
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

// --- the parser ---

TEST(WireTest, EndpointNamesAreNoPaths) {
    EXPECT_TRUE(binder::isEndpointName("1.0123456789abcdef"));
    EXPECT_EQ(binder::pidOfEndpoint("417.0123456789abcdef"), 417);
    for (const char* name :
         {"", ".", "1", "1.", "1.0123456789abcde", "1.0123456789abcdef0", "0.0123456789abcdef",
          "-1.0123456789abcdef", "1.0123456789ABCDEF", "../0123456789abcdef", "1.01234567/9abcdef",
          "99999999999.0123456789abcdef", "9999999999.0123456789abcdef"}) {
        EXPECT_FALSE(binder::isEndpointName(name)) << name;
    }
}

TEST(WireTest, OnlyWholeMessagesParse) {
    const std::string name = claimedName();
    const Bytes message = messageOf(headerOf(MessageKind::kCall), Bytes(16),
                                    {{.kind = ObjectRecord::Kind::kBinder,
                                      .offset = 8,
                                      .id = 7,
                                      .endpoint = name,
                                      .descriptor = "a.b.IC"}});
    const auto parsed = binder::parseMessage(message, ConnectionKind::kCall);
    ASSERT_TRUE(parsed.has_value());
    ASSERT_EQ(parsed->objects.size(), 1U);
    EXPECT_EQ(parsed->objects[0].endpoint, name);
    EXPECT_EQ(parsed->objects[0].descriptor, "a.b.IC");
    EXPECT_FALSE(binder::parseMessage(message, ConnectionKind::kOneway).has_value());
    EXPECT_FALSE(binder::parseMessage(message, ConnectionKind::kControl).has_value());
    for (size_t size = 0; size < message.size(); ++size) {
        EXPECT_FALSE(binder::parseMessage({message.data(), size}, ConnectionKind::kCall));
    }
    Bytes longer = message;
    longer.push_back(0);
    EXPECT_FALSE(binder::parseMessage(longer, ConnectionKind::kCall).has_value());
}

// --- a process that is thrown at ---

class HostileTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mPeer, nullptr);
        for (const auto& entry : std::filesystem::directory_iterator(harness::runtimeFolder())) {
            const std::string name = entry.path().filename();
            if (name.starts_with(std::to_string(mProcess.child.pid()) + "."))
                mSocket = entry.path();
        }
        ASSERT_FALSE(mSocket.empty());
        // The connection for one-way calls, too, is there before anything is counted.
        std::vector<int32_t> posts;
        ASSERT_TRUE(mPeer->post(0).isOk());
        ASSERT_TRUE(mPeer->awaitPosts(1, &posts).isOk());
        mDescriptors = descriptorsOfPeer();
    }

    /** The peer is as it was: it answers, and has kept no descriptor. */
    void TearDown() override {
        mControl.reset();
        EXPECT_TRUE(eventually([this] { return descriptorsOfPeer() == mDescriptors; }));
    }

    int32_t descriptorsOfPeer() {
        int32_t count = -1;
        EXPECT_TRUE(mPeer->openDescriptors(&count).isOk());
        return count;
    }

    unique_fd connectRaw() const {
        unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        mSocket.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        return socket;
    }

    static void sendBytes(int socket, const Bytes& bytes,
                          const std::vector<int>& descriptors = {}) {
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

    /** A connection after a correct hello; the control connection keeps the claim alive. */
    unique_fd introduce(ConnectionKind kind) {
        if (mControl < 0) {
            mControl = connectRaw();
            sendBytes(mControl, helloOf(ConnectionKind::kControl, claimedName()));
        }
        unique_fd socket = connectRaw();
        sendBytes(socket, helloOf(kind, claimedName()));
        return socket;
    }

    /** Reads until the peer ends the connection; false when it does not. */
    static bool ends(int socket) {
        const timeval limit{.tv_sec = 30, .tv_usec = 0};
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        char buffer[256];
        ssize_t got;
        while ((got = recv(socket, buffer, sizeof(buffer), 0)) > 0) {
        }
        return got == 0 || errno == ECONNRESET;
    }

    PeerProcess mProcess{"target"};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
    std::filesystem::path mSocket;
    int32_t mDescriptors = 0;
    unique_fd mControl;
};

TEST_F(HostileTest, WrongIntroductionsAreRefused) {
    const std::string othersName = std::to_string(getppid()) + ".0123456789abcdef";
    Bytes wrongMagic = helloOf(ConnectionKind::kCall, claimedName());
    wrongMagic[0] ^= 1;
    const std::vector<Bytes> introductions = {
            wrongMagic,
            helloOf(static_cast<ConnectionKind>(9), claimedName()),
            helloOf(ConnectionKind::kCall, "../servicemanager"),
            helloOf(ConnectionKind::kControl, othersName),
            helloOf(ConnectionKind::kControl, mSocket.filename()),
            Bytes(4096, 0xff),
    };
    for (const Bytes& introduction : introductions) {
        const unique_fd socket = connectRaw();
        sendBytes(socket, introduction);
        EXPECT_TRUE(ends(socket));
    }
}

TEST_F(HostileTest, MalformedMessagesEndTheirConnection) {
    struct Case {
        const char* what;
        ConnectionKind connection;
        std::function<Bytes()> bytes;
        size_t descriptors = 0;
    };
    const auto call = [](const std::function<void(Header&)>& change) {
        return [change] {
            Header header = headerOf(MessageKind::kCall);
            change(header);
            Bytes bytes;
            append(header, &bytes);
            return bytes;
        };
    };
    const auto withRecord = [](ObjectRecord record, uint32_t descriptors) {
        return [=] {
            Header header = headerOf(MessageKind::kCall);
            header.descriptorCount = descriptors;
            return messageOf(header, Bytes(32), {record});
        };
    };
    const std::string own = claimedName();
    const auto binderAt = [](uint32_t offset, std::string_view endpoint) {
        return ObjectRecord{.kind = ObjectRecord::Kind::kBinder,
                            .offset = offset,
                            .id = 12345,
                            .endpoint = endpoint,
                            .descriptor = "x"};
    };
    const ObjectRecord descriptor{
            .kind = ObjectRecord::Kind::kDescriptor, .offset = 0, .endpoint = {}, .descriptor = {}};
    const auto kCall = ConnectionKind::kCall;
    const std::vector<Case> cases = {
            {"magic", kCall, call([](Header& h) { h.magic = 0; })},
            {"unknown kind", kCall, call([](Header& h) { h.kind = static_cast<MessageKind>(77); })},
            {"reply to nothing", kCall, call([](Header& h) { h.kind = MessageKind::kReply; })},
            {"control message", kCall, call([](Header& h) { h.kind = MessageKind::kDecRef; })},
            {"huge data", kCall, call([](Header& h) { h.dataSize = UINT32_MAX; })},
            {"huge table", kCall, call([](Header& h) { h.tableSize = UINT32_MAX; })},
            {"many objects", kCall, call([](Header& h) { h.objectCount = UINT32_MAX; })},
            {"many descriptors", kCall, call([](Header& h) { h.descriptorCount = 2000; })},
            {"table without objects", kCall,
             [] {
                 Header header = headerOf(MessageKind::kCall);
                 header.tableSize = 24;
                 Bytes bytes;
                 append(header, &bytes);
                 bytes.resize(bytes.size() + 24);
                 return bytes;
             }},
            {"bytes behind", kCall,
             [] {
                 Bytes bytes = messageOf(headerOf(MessageKind::kCall), Bytes(4), {});
                 bytes.push_back(0);
                 return bytes;
             }},
            {"offset beyond", kCall, withRecord(binderAt(32, own), 0)},
            {"offset across the end", kCall, withRecord(binderAt(28, own), 0)},
            {"offset askew", kCall, withRecord(binderAt(3, own), 0)},
            {"slot of nothing", kCall, withRecord(binderAt(8, own), 0)},
            {"endpoint of no form", kCall, withRecord(binderAt(0, "/etc/passwd"), 0)},
            {"missing descriptor", kCall, withRecord(descriptor, 1)},
            {"uncounted descriptor", kCall, withRecord(descriptor, 0), 1},
            {"unknown record", kCall,
             withRecord({.kind = static_cast<ObjectRecord::Kind>(9),
                         .offset = 0,
                         .endpoint = {},
                         .descriptor = {}},
                        0)},
            {"call on one-way", ConnectionKind::kOneway, call([](Header&) {})},
    };
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.what);
        const unique_fd socket = introduce(testCase.connection);
        sendBytes(socket, testCase.bytes(), std::vector<int>(testCase.descriptors, file));
        EXPECT_TRUE(ends(socket));
        // The next one claims the same name, so the peer must have forgotten this one before.
        shutdown(mControl, SHUT_WR);
        EXPECT_TRUE(ends(mControl));
        mControl.reset();
    }
}

TEST_F(HostileTest, ControlMessagesCannotUpsetTheCounts) {
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    const unique_fd socket = introduce(ConnectionKind::kControl);
    for (uint64_t object = 0; object < 20; ++object) {
        for (const MessageKind kind : {MessageKind::kDecRef, MessageKind::kAcquireAnswer,
                                       MessageKind::kAck, MessageKind::kAcquire}) {
            Header header = headerOf(kind);
            header.object = object;
            header.token = UINT64_MAX;
            header.sequence = object % 2 == 0 ? 0 : UINT64_MAX;
            Bytes bytes;
            append(header, &bytes);
            sendBytes(socket, bytes);
        }
    }
    EXPECT_TRUE(created->post(1).isOk());
    std::vector<int32_t> posts;
    EXPECT_TRUE(created->awaitPosts(1, &posts).isOk());
}

TEST_F(HostileTest, ReturnOfNoReferencesOutlivesNoObject) {
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    const unique_fd socket = introduce(ConnectionKind::kControl);
    struct Step {
        MessageKind kind;
        uint64_t count;
        uint64_t sequence;
    };
    constexpr uint64_t kObjects = 20;
    for (uint64_t object = 0; object < kObjects; ++object) {
        // Nothing is given back for later, then everything at once.
        for (const Step& step :
             {Step{MessageKind::kAcquire, 0, 0}, Step{MessageKind::kDecRef, 0, UINT64_MAX},
              Step{MessageKind::kDecRef, UINT64_MAX, 0}}) {
            Header header = headerOf(step.kind);
            header.object = object;
            header.token = step.count;
            header.sequence = step.sequence;
            Bytes bytes;
            append(header, &bytes);
            sendBytes(socket, bytes);
        }
    }
    // Answers come over the first of the claimed peer's control connections.
    Bytes answers(kObjects * sizeof(Header));
    ASSERT_EQ(recv(mControl, answers.data(), answers.size(), MSG_WAITALL),
              static_cast<ssize_t>(answers.size()));
    // The object goes while the claimed peer lives; then that one's end is sorted out.
    created.reset();
    int32_t live = 0;
    EXPECT_TRUE(eventually([&] { return mPeer->liveObjects(&live).isOk() && live == 1; }));
}

TEST_F(HostileTest, CallWithAnUnknownObjectIsAnswered) {
    const unique_fd socket = introduce(ConnectionKind::kCall);
    Header toUnknown = headerOf(MessageKind::kCall);
    toUnknown.object = 999;
    const std::string target = mSocket.filename();
    const ObjectRecord unknown{.kind = ObjectRecord::Kind::kBinder,
                               .offset = 0,
                               .id = 12345,
                               .endpoint = target,
                               .descriptor = "x"};
    for (const Bytes& bytes : {messageOf(toUnknown, {}, {}),
                               messageOf(headerOf(MessageKind::kCall), Bytes(32), {unknown})}) {
        sendBytes(socket, bytes);
        Header reply{};
        ASSERT_EQ(recv(socket, &reply, sizeof(reply), MSG_WAITALL), ssize_t{sizeof(reply)});
        EXPECT_EQ(reply.kind, MessageKind::kReply);
        EXPECT_EQ(static_cast<binder_status_t>(reply.code), STATUS_DEAD_OBJECT);
    }
}

TEST_F(HostileTest, EveryObjectTellsItsInterface) {
    const unique_fd socket = introduce(ConnectionKind::kCall);
    Header header = headerOf(MessageKind::kCall);
    header.code = '_' << 24 | 'N' << 16 | 'T' << 8 | 'F';
    Bytes bytes;
    append(header, &bytes);
    sendBytes(socket, bytes);
    Header reply{};
    ASSERT_EQ(recv(socket, &reply, sizeof(reply), MSG_WAITALL), ssize_t{sizeof(reply)});
    EXPECT_EQ(reply.code, uint32_t{STATUS_OK});
    Bytes data(reply.dataSize);
    ASSERT_EQ(recv(socket, data.data(), data.size(), MSG_WAITALL),
              static_cast<ssize_t>(data.size()));
    const ndk::ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(AParcel_unmarshal(parcel.get(), data.data(), data.size()), STATUS_OK);
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
    std::string descriptor;
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &descriptor), STATUS_OK);
    EXPECT_EQ(descriptor, ITestPeer::descriptor);
}

TEST_F(HostileTest, UnfinishedMessagesHoldNoThread) {
    std::vector<unique_fd> sockets;
    for (int i = 0; i < 40; ++i) {
        unique_fd socket = introduce(ConnectionKind::kCall);
        Header header = headerOf(MessageKind::kCall);
        header.dataSize = 100'000;
        Bytes bytes;
        append(header, &bytes);
        bytes.resize(i % 2 == 0 ? sizeof(Header) / 2 : sizeof(Header) + 50'000);
        sendBytes(socket, bytes);
        sockets.push_back(std::move(socket));
    }
    int32_t swallowed = 0;
    EXPECT_TRUE(mPeer->swallow(std::vector<uint8_t>(1000), &swallowed).isOk());
}

TEST_F(HostileTest, RepliesThatNobodyReadsAreNotKeptForEver) {
    const unique_fd socket = introduce(ConnectionKind::kCall);
    Header header = headerOf(MessageKind::kCall);
    header.code = '_' << 24 | 'N' << 16 | 'T' << 8 | 'F';
    // Too long for a call to be read together with the next one's beginning.
    const Bytes call = messageOf(header, Bytes(1024), {});
    int calls = 0;
    while (send(socket, call.data(), call.size(), MSG_NOSIGNAL) > 0)
        ASSERT_LT(++calls, 200'000);
    EXPECT_TRUE(ends(socket));
}

TEST_F(HostileTest, RandomBytesDoNoHarm) {
    std::mt19937 random(20240229);
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    const ConnectionKind kinds[] = {ConnectionKind::kControl, ConnectionKind::kCall,
                                    ConnectionKind::kOneway};
    for (int i = 0; i < 500; ++i) {
        const unique_fd socket = introduce(kinds[random() % 3]);
        Bytes bytes(random() % 512);
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random());
        // Half of them look right up to a point.
        if (i % 2 == 0 && bytes.size() >= sizeof(Header)) {
            Header header = headerOf(static_cast<MessageKind>(random() % 8));
            header.dataSize = random() % 256;
            header.tableSize = random() % 256;
            header.objectCount = random() % 4;
            header.descriptorCount = random() % 3;
            header.object = random() % 3;
            memcpy(bytes.data(), &header, sizeof(header));
        }
        sendBytes(socket, bytes, std::vector<int>(random() % 3, file));
        if (random() % 4 == 0) mControl.reset();
    }
    mControl.reset();
}

}  // namespace
}  // namespace platformtest
