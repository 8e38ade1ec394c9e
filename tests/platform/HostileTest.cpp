#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <malloc.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "host/platform/src/transport/Wire.h"
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

Bytes words(const std::vector<uint32_t>& values) {
    Bytes bytes;
    for (const uint32_t value : values)
        append(value, &bytes);
    return bytes;
}

Bytes bytesOf(const AParcel* parcel) {
    Bytes bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    EXPECT_EQ(AParcel_marshal(parcel, bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
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
                                      .stability = 63,
                                      .endpoint = name}});
    const auto parsed = binder::parseMessage(message, ConnectionKind::kCall);
    ASSERT_TRUE(parsed.has_value());
    ASSERT_EQ(parsed->objects.size(), 1U);
    EXPECT_EQ(parsed->objects[0].endpoint, name);
    EXPECT_EQ(parsed->objects[0].stability, 63U);
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

/** Holds up whoever calls it until the lock is free. */
class Blocker : public TestPeer {
  public:
    explicit Blocker(std::mutex& lock) : mGate(lock) {}

    ndk::ScopedAStatus descend(const std::shared_ptr<ITestPeer>& /*other*/, int32_t /*depth*/,
                               int32_t* result) override {
        const std::lock_guard guard(mGate);
        *result = 1;
        return ndk::ScopedAStatus::ok();
    }

  private:
    std::mutex& mGate;
};

class HostileTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mPeer, nullptr);
        mSocket = socketOf(mProcess.child.pid());
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

    unique_fd connectRaw() const { return connectRaw(mSocket); }

    /** A message that the process of the socket sent. */
    struct Answer {
        Bytes bytes;
        binder::Message message;  // views into the bytes
    };
    static std::optional<Answer> answerOf(int socket) {
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
    static Bytes lookupOf(const char* name) {
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
        explicit Raw(const std::filesystem::path& path)
            : control(connectRaw(path)), call(connectRaw(path)) {
            sendBytes(control, helloOf(ConnectionKind::kControl, claimedName()));
            sendBytes(call, helloOf(ConnectionKind::kCall, claimedName()));
        }
        /** The name can be claimed again once the process has forgotten it. */
        ~Raw() {
            shutdown(control, SHUT_WR);
            EXPECT_TRUE(ends(control));
        }

        unique_fd control;
        unique_fd call;
    };

    /** Looks a name up: the record of its object, and whose it is. */
    static std::optional<Answer> lookUp(const Raw& manager, const char* name) {
        Header header = headerOf(MessageKind::kCall);
        header.code = 2;
        header.object = binder::kServiceManagerObject;
        sendBytes(manager.call, messageOf(header, lookupOf(name), {}));
        return answerOf(manager.call);
    }

    static std::filesystem::path socketOf(pid_t pid) {
        for (const auto& entry : std::filesystem::directory_iterator(harness::runtimeFolder())) {
            const std::string name = entry.path().filename();
            if (name.starts_with(std::to_string(pid) + ".")) return entry.path();
        }
        return {};
    }

    /** The number of the target's object, as anybody gets it from the service manager. */
    static uint64_t targetObject() {
        const Raw manager(socketOf(getpid()));
        const auto answer = lookUp(manager, "target");
        EXPECT_TRUE(answer.has_value() && answer->message.objects.size() == 1);
        return answer.has_value() ? answer->message.objects.at(0).id : 0;
    }

    static unique_fd connectRaw(const std::filesystem::path& path) {
        unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
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

    PeerProcess mProcess{{std::string("target"), std::string("1024")}};
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
                            .endpoint = endpoint};
    };
    const ObjectRecord descriptor{.kind = ObjectRecord::Kind::kDescriptor, .offset = 0};
    const auto kCall = ConnectionKind::kCall;
    const std::vector<Case> cases = {
            {"magic", kCall, call([](Header& h) { h.magic = 0; })},
            {"unknown kind", kCall, call([](Header& h) { h.kind = static_cast<MessageKind>(77); })},
            {"reply to nothing", kCall, call([](Header& h) { h.kind = MessageKind::kReply; })},
            {"control message", kCall, call([](Header& h) { h.kind = MessageKind::kRelease; })},
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
             withRecord({.kind = static_cast<ObjectRecord::Kind>(9), .offset = 0}, 0)},
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

TEST_F(HostileTest, ControlMessagesUpsetNobodysCounts) {
    const uint64_t object = targetObject();
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(mPeer->create(&created).isOk());
    ASSERT_TRUE(mPeer->keep(created).isOk());
    int64_t heap = 0;
    ASSERT_TRUE(mPeer->heapBytes(&heap).isOk());
    const unique_fd socket = introduce(ConnectionKind::kControl);
    const std::string target = mSocket.filename();
    const std::string tester = socketOf(getpid()).filename();
    const auto say = [&](MessageKind kind, uint64_t id, uint64_t count, const std::string& name) {
        Header header = headerOf(kind);
        header.object = id;
        header.count = count;
        header.tableSize = static_cast<uint32_t>(name.size());
        Bytes bytes;
        append(header, &bytes);
        bytes.insert(bytes.end(), name.begin(), name.end());
        sendBytes(socket, bytes);
    };
    for (uint64_t i = 0; i < 5000; ++i) {
        for (const uint64_t id : {object, uint64_t{0}, i}) {
            say(MessageKind::kRelease, id, i % 2 == 0 ? 1 : UINT32_MAX, "");
            say(MessageKind::kClaim, id, 0, i % 2 == 0 ? tester : "1.0123456789abcdef");
            say(MessageKind::kGrant, id, 0, i % 3 == 0 ? tester : target);
            say(MessageKind::kRevoke, id, 0, i % 3 == 0 ? tester : target);
            say(MessageKind::kRevoke, id, 0, claimedName());
        }
    }
    // All of it has been read when the end of the connection is seen.
    shutdown(socket, SHUT_WR);
    EXPECT_TRUE(ends(socket));
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(created->post(i).isOk());
        EXPECT_TRUE(mPeer->callKept().isOk());
        EXPECT_TRUE(mPeer->post(i).isOk());
    }
    int64_t after = 0;
    ASSERT_TRUE(mPeer->heapBytes(&after).isOk());
    EXPECT_LT(after - heap, 64 * 1024);
    // The object goes when those have let go of it who really had it.
    ASSERT_TRUE(mPeer->keep(nullptr).isOk());
    created.reset();
    int32_t live = 0;
    EXPECT_TRUE(eventually([&] { return mPeer->liveObjects(&live).isOk() && live == 1; }));
}

TEST_F(HostileTest, ReferencesThatNobodyTakesOrReturnsTakeNoRoom) {
    const auto heap = [] { return static_cast<int64_t>(mallinfo2().uordblks); };
    const Raw manager(socketOf(getpid()));
    ASSERT_TRUE(lookUp(manager, "target").has_value());
    const int64_t before = heap();
    for (int i = 0; i < 5000; ++i)
        ASSERT_TRUE(lookUp(manager, "target").has_value());
    EXPECT_LT(heap() - before, 64 * 1024);
}

TEST_F(HostileTest, NumbersOfObjectsCannotBeGuessed) {
    const uint64_t object = targetObject();
    const unique_fd socket = introduce(ConnectionKind::kCall);
    for (const uint64_t guess : {object + 1, object - 1, uint64_t{1}, uint64_t{2}}) {
        Header header = headerOf(MessageKind::kCall);
        header.object = guess;
        sendBytes(socket, messageOf(header, {}, {}));
        const auto answer = answerOf(socket);
        ASSERT_TRUE(answer.has_value());
        EXPECT_EQ(static_cast<binder_status_t>(answer->message.header.code), STATUS_DEAD_OBJECT);
    }
}

TEST_F(HostileTest, CallWithAnUnknownObjectIsAnswered) {
    const unique_fd socket = introduce(ConnectionKind::kCall);
    Header header = headerOf(MessageKind::kCall);
    header.object = targetObject();
    const std::string target = mSocket.filename();
    sendBytes(socket, messageOf(header, words({1, 0, 0, 0}),
                                {{.kind = ObjectRecord::Kind::kBinder,
                                  .offset = 0,
                                  .id = 12345,
                                  .endpoint = target}}));
    const auto answer = answerOf(socket);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(static_cast<binder_status_t>(answer->message.header.code), STATUS_DEAD_OBJECT);
}

TEST_F(HostileTest, ShellCommandReachesTheObject) {
    const unique_fd socket = introduce(ConnectionKind::kCall);
    unique_fd streams[3];
    for (unique_fd& stream : streams)
        stream.reset(memfd_create("stream", MFD_CLOEXEC));
    // A list of three, each of which is there: a word, and the slot of its descriptor.
    Bytes data = words({3, 1, 2, 0, 1, 2, 0, 1, 2, 0});
    std::vector<ObjectRecord> records;
    for (const uint32_t offset : {8U, 20U, 32U})
        records.push_back({.kind = ObjectRecord::Kind::kDescriptor, .offset = offset});
    const ndk::ScopedAParcel parcel(AParcel_create());
    ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), std::vector<std::string>{"do", "it"}),
              STATUS_OK);
    const Bytes arguments = bytesOf(parcel.get());
    data.insert(data.end(), arguments.begin(), arguments.end());
    Header header = headerOf(MessageKind::kCall);
    header.code = '_' << 24 | 'C' << 16 | 'M' << 8 | 'D';
    header.object = targetObject();
    header.descriptorCount = 3;
    sendBytes(socket, messageOf(header, data, records), {streams[0], streams[1], streams[2]});
    const auto answer = answerOf(socket);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->message.header.code, uint32_t{STATUS_OK});
    char text[16] = {};
    EXPECT_EQ(pread(streams[1], text, sizeof(text), 0), 8);
    EXPECT_STREQ(text, "[do][it]");
    EXPECT_EQ(pread(streams[2], text, sizeof(text), 0), 1);
    EXPECT_EQ(text[0], '2');
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

TEST_F(HostileTest, UnfinishedMessagesHoldFewDescriptors) {
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    const std::vector<int> most(binder::kMaxDescriptors, file);
    std::vector<unique_fd> sockets;
    for (int i = 0; i < 20; ++i) {
        sockets.push_back(introduce(ConnectionKind::kCall));
        sendBytes(sockets.back(), Bytes(5), most);
    }
    // Those of one message are waited for.
    EXPECT_TRUE(eventually([&] {
        return std::ranges::count_if(sockets, [](const unique_fd& socket) {
                   pollfd end{.fd = socket, .events = POLLRDHUP, .revents = 0};
                   return poll(&end, 1, 0) == 1;
               }) == 19;
    }));
    EXPECT_LT(descriptorsOfPeer(), mDescriptors + 300);
    // Nor do descriptors get in that come later than their message.
    const unique_fd late = introduce(ConnectionKind::kCall);
    Bytes call = messageOf(headerOf(MessageKind::kCall), Bytes(16), {});
    sendBytes(late, {call.begin(), call.begin() + 50});
    sendBytes(late, {call.begin() + 50, call.end()}, most);
    EXPECT_TRUE(ends(late));
    PeerProcess newcomer("newcomer");
    EXPECT_NE(newcomer.peer, nullptr);
    int32_t calls = 0;
    EXPECT_TRUE(newcomer.peer->descend(mPeer, 1, &calls).isOk());
}

TEST_F(HostileTest, OnewayCallsThatWaitHoldFewDescriptors) {
    ASSERT_TRUE(mPeer->holdPosts().isOk());
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    std::vector<ObjectRecord> records;
    Bytes data;
    for (uint32_t i = 0; i < binder::kMaxDescriptors; ++i) {
        records.push_back({.kind = ObjectRecord::Kind::kDescriptor, .offset = 8 * i});
        for (const uint32_t word : {2U, 0U})
            append(word, &data);
    }
    Header header = headerOf(MessageKind::kOneway);
    header.object = targetObject();
    header.descriptorCount = binder::kMaxDescriptors;
    const Bytes call = messageOf(header, data, records);
    const unique_fd socket = introduce(ConnectionKind::kOneway);
    for (int i = 0; i < 60; ++i)
        sendBytes(socket, call, std::vector<int>(binder::kMaxDescriptors, file));
    EXPECT_TRUE(ends(socket));
    EXPECT_LT(descriptorsOfPeer(), mDescriptors + 300);
    ASSERT_TRUE(mPeer->releasePosts().isOk());
}

TEST(FullTableTest, ProcessWithoutDescriptorsServesOnAndStaysQuiet) {
#if defined(__has_feature)
#if __has_feature(undefined_behavior_sanitizer)
    GTEST_SKIP() << "the sanitizer's own checks need descriptors";
#endif
#endif
    const PeerProcess process(std::vector<std::string>{"full", "64"});
    PeerProcess other("other");
    ASSERT_NE(process.peer, nullptr);
    ASSERT_NE(other.peer, nullptr);
    std::shared_ptr<ITestPeer> created;
    ASSERT_TRUE(process.peer->create(&created).isOk());
    ASSERT_TRUE(other.peer->keep(created).isOk());
    ASSERT_TRUE(other.peer->callKept().isOk());
    created.reset();

    // More callers at once than it has room for: some are refused, nobody hangs.
    std::vector<std::thread> callers;
    std::atomic<int> refused = 0;
    std::mutex lock;
    lock.lock();
    for (int i = 0; i < 100; ++i) {
        callers.emplace_back([&] {
            const auto local = ndk::SharedRefBase::make<Blocker>(lock);
            int32_t calls = 0;
            refused += process.peer->descend(local, 1, &calls).isOk() ? 0 : 1;
        });
    }
    int32_t lines = 0;
    int32_t pid = 0;
    EXPECT_TRUE(eventually([&] { return refused > 30; }));
    other.child.kill();
    int32_t live = 0;
    EXPECT_TRUE(eventually([&] { return other.peer->post(1).getStatus() == STATUS_DEAD_OBJECT; }));
    lock.unlock();
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_TRUE(eventually([&] { return process.peer->liveObjects(&live).isOk() && live == 1; }));
    EXPECT_TRUE(process.peer->callingPid(&pid).isOk());
    ASSERT_TRUE(process.peer->logLines(&lines).isOk());
    EXPECT_LT(lines, 300);
}

TEST_F(HostileTest, RepliesThatNobodyReadsAreNotKeptForEver) {
    const unique_fd socket = introduce(ConnectionKind::kCall);
    Header header = headerOf(MessageKind::kCall);
    header.code = '_' << 24 | 'N' << 16 | 'T' << 8 | 'F';
    header.object = targetObject();
    // Too long for a call to be read together with the next one's beginning.
    const Bytes call = messageOf(header, Bytes(16 * 1024), {});
    int calls = 0;
    while (send(socket, call.data(), call.size(), MSG_NOSIGNAL) > 0)
        ASSERT_LT(++calls, 500'000);
    EXPECT_TRUE(ends(socket));
}

TEST_F(HostileTest, RandomBytesDoNoHarm) {
    std::mt19937 random(20240229);
    const uint64_t object = targetObject();
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
            Header header = headerOf(static_cast<MessageKind>(random() % 10));
            header.dataSize = random() % 256;
            header.tableSize = random() % 256;
            header.objectCount = random() % 4;
            header.descriptorCount = random() % 3;
            header.object = random() % 2 == 0 ? object : 0;
            header.count = random() % 3;
            memcpy(bytes.data(), &header, sizeof(header));
        }
        sendBytes(socket, bytes, std::vector<int>(random() % 3, file));
        if (random() % 4 == 0) mControl.reset();
    }
    mControl.reset();
}

}  // namespace
}  // namespace platformtest
