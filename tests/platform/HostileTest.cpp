#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <malloc.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "tests/platform/RawProcess.h"
#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

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
        mDescriptors = openDescriptors();
    }

    /** The peer is as it was: it answers, and has kept no descriptor. */
    void TearDown() override {
        mControl.reset();
        EXPECT_TRUE(eventually([this] { return openDescriptors() == mDescriptors; }));
        EXPECT_EQ(AIBinder_ping(mPeer->asBinder().get()), STATUS_OK);
    }

    size_t openDescriptors() const { return harness::openDescriptors(mProcess.child.pid()); }

    /** A connection after a correct hello; the control connection keeps the claim alive. */
    unique_fd introduce(ConnectionKind kind) {
        if (mControl < 0) mControl = platformtest::introduce(mSocket, ConnectionKind::kControl);
        return platformtest::introduce(mSocket, kind);
    }

    PeerProcess mProcess{{std::string("target"), std::string("1024")}};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
    std::filesystem::path mSocket;
    size_t mDescriptors = 0;
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
        const unique_fd socket = connectRaw(mSocket);
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
    EXPECT_LT(after - heap, 512 * 1024);
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
    for (int i = 0; i < 10'000; ++i)
        ASSERT_TRUE(lookUp(manager, "target").has_value());
    // Less than each would take by itself; other threads of this process allocate, too.
    EXPECT_LT(heap() - before, 512 * 1024);
}

TEST_F(HostileTest, ObjectsThatOneWasNotGivenAreDead) {
    const uint64_t object = targetObject();
    const unique_fd socket = introduce(ConnectionKind::kCall);
    const std::string target = mSocket.filename();
    const std::vector<ObjectRecord> unknown = {
            {.kind = ObjectRecord::Kind::kBinder, .offset = 0, .id = 12345, .endpoint = target}};
    // As what is called, next to the one that is there, and as what a call carries.
    for (const uint64_t called : {object + 1, object - 1, uint64_t{1}, object}) {
        Header header = headerOf(MessageKind::kCall);
        header.object = called;
        sendBytes(socket, called == object ? messageOf(header, words({1, 0, 0, 0}), unknown)
                                           : messageOf(header, {}, {}));
        const auto answer = answerOf(socket);
        ASSERT_TRUE(answer.has_value());
        EXPECT_EQ(static_cast<binder_status_t>(answer->message.header.code), STATUS_DEAD_OBJECT);
    }
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

TEST_F(HostileTest, UnfinishedMessagesHoldFewDescriptors) {
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    const std::vector<int> most(binder::kMaxDescriptors, file);
    std::vector<unique_fd> sockets;
    // Those of one message are waited for. Another one's come when the peer has let go of those
    // before: while its threads have all of them it has no room, and there is nothing to refuse.
    for (int refused = 0; refused < 20; ++refused) {
        sockets.push_back(introduce(ConnectionKind::kCall));
        sendBytes(sockets.back(), Bytes(5), most);
        EXPECT_TRUE(eventually([&] {
            return openDescriptors() < mDescriptors + 300 &&
                   refused == std::ranges::count_if(sockets, [](const unique_fd& socket) {
                       pollfd end{.fd = socket, .events = POLLRDHUP, .revents = 0};
                       return poll(&end, 1, 0) == 1;
                   });
        }));
    }
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
    EXPECT_LT(openDescriptors(), mDescriptors + 300);
    ASSERT_TRUE(mPeer->releasePosts().isOk());
}

}  // namespace
}  // namespace platformtest
