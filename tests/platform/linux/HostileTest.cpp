#include <array>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include "tests/platform/linux/RawProcess.h"
#include "tests/platform/ndk/TestPeer.h"

namespace platformtest {
namespace {

// What one process may take up of the target's 1,024 descriptors while it is served nothing.
constexpr size_t kShare = binder::kMaxDescriptors + 64;

class HostileTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mPeer, nullptr);
        mSocket = socketOf(mProcess.child.pid());
        ASSERT_FALSE(mSocket.empty());
        mTarget = targetObject();
        // The connection for one-way calls, too, is there before anything is counted.
        std::vector<int32_t> posts;
        ASSERT_TRUE(mPeer->post(0).isOk());
        ASSERT_TRUE(mPeer->awaitPosts(1, &posts).isOk());
        mDescriptors = openDescriptors();
    }

    /** The peer is as it was: it answers, and has kept no descriptor. */
    void TearDown() override {
        EXPECT_TRUE(eventually([this] { return openDescriptors() <= mDescriptors; }))
                << openDescriptors() << " instead of " << mDescriptors;
        EXPECT_EQ(AIBinder_ping(mPeer->asBinder().get()), STATUS_OK);
    }

    size_t openDescriptors() const { return harness::openDescriptors(mProcess.child.pid()); }
    unique_fd connectToTarget() const { return connectRaw(mSocket); }
    /** A process that has nothing to do with this one's doings is served. */
    void expectNewcomersAreServed() const {
        const PeerProcess newcomer("newcomer");
        ASSERT_NE(newcomer.peer, nullptr);
        int32_t calls = 0;
        EXPECT_TRUE(newcomer.peer->descend(mPeer, 1, &calls).isOk());
    }
    /** A call of the target that carries nothing but these objects. */
    Bytes call(transaction_code_t code, const std::vector<ObjectRecord>& records) const {
        Bytes data = tokenOf(ITestPeer::descriptor);
        std::vector<ObjectRecord> placed = records;
        for (ObjectRecord& record : placed) {
            record.offset = static_cast<uint32_t>(data.size());
            appendObject('s', &data);
        }
        return messageOf(headerOf(MessageKind::kCall, code, mTarget), data, placed);
    }

    PeerProcess mProcess{{std::string("target"), std::string("1024")}};
    const std::shared_ptr<ITestPeer> mPeer = mProcess.peer;
    std::filesystem::path mSocket;
    uint64_t mTarget = 0;
    size_t mDescriptors = 0;
};

/** A pipe's ends: reading, writing. */
std::array<unique_fd, 2> newPipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    return {unique_fd(ends[0]), unique_fd(ends[1])};
}

/** The other side has taken out of the socket what was sent. */
bool isAllRead(int socket) {
    int unread = 0;
    return ioctl(socket, SIOCOUTQ, &unread) == 0 && unread == 0;
}

bool hasEnded(int socket) {
    pollfd end{.fd = socket, .events = POLLRDHUP, .revents = 0};
    return poll(&end, 1, 0) == 1;
}

TEST_F(HostileTest, MalformedMessagesEndTheirConnection) {
    enum Brings { kNothing, kFile, kPipe, kTwoPipes };
    struct Case {
        const char* what;
        Bytes bytes;
        Brings brings = kNothing;
    };
    const auto header = [](MessageKind kind, const std::function<void(Header&)>& change) {
        Header header = headerOf(kind);
        change(header);
        Bytes bytes;
        append(header, &bytes);
        return bytes;
    };
    const auto plain = [&](MessageKind kind) { return header(kind, [](Header&) {}); };
    const auto with = [](const Bytes& bytes, const Bytes& more) {
        Bytes all = bytes;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    };
    const auto record = [](char kind, const ObjectRecord& it) {
        Bytes data(4);
        appendObject(kind, &data);
        return messageOf(headerOf(MessageKind::kCall), data, {it});
    };
    const auto kCall = MessageKind::kCall;
    const Bytes hold = plain(MessageKind::kHold);
    ObjectRecord unknown = descriptorAt(4);
    unknown.kind = static_cast<ObjectRecord::Kind>(9);
    const std::vector<Case> cases = {
            {"a few bytes", Bytes(5, 0x4d)},
            {"noise", Bytes(4096, 0xff)},
            {"magic", header(kCall, [](Header& h) { h.magic ^= 1; })},
            {"unknown kind", plain(static_cast<MessageKind>(77))},
            {"reply to nothing", plain(MessageKind::kReply)},
            {"line for nobody", plain(MessageKind::kLine), kPipe},
            {"report of nothing", plain(MessageKind::kServed)},
            {"end of nothing", plain(MessageKind::kDone)},
            {"huge data", header(kCall, [](Header& h) { h.dataSize = UINT32_MAX; })},
            {"many objects", header(kCall, [](Header& h) { h.objectCount = 254; })},
            {"most objects", header(kCall, [](Header& h) { h.objectCount = UINT32_MAX; })},
            {"many wait", header(kCall, [](Header& h) { h.count = binder::kMaxNesting + 1; })},
            {"bytes behind", with(messageOf(headerOf(kCall), Bytes(4)), Bytes(1))},
            {"offset beyond", record('s', binderAt(32, ownName())), kPipe},
            {"offset across the end", record('s', binderAt(12, ownName())), kPipe},
            {"offset askew", record('s', binderAt(3, ownName())), kPipe},
            {"object of another kind", record('f', binderAt(4, ownName())), kPipe},
            {"endpoint of no form", record('s', binderAt(4, "/etc/passwd")), kPipe},
            {"unknown record", record('f', unknown), kFile},
            {"binder without an end", record('s', binderAt(4, ownName()))},
            {"binder held by a file", record('s', binderAt(4, ownName())), kFile},
            {"own binder held by a file", record('s', binderAt(4, mSocket.filename())), kFile},
            {"missing descriptor", record('f', descriptorAt(4))},
            {"one descriptor more", record('f', descriptorAt(4)), kTwoPipes},
            {"huge one-way call",
             header(MessageKind::kOneway, [](Header& h) { h.dataSize = binder::kMaxOneway + 1; })},
            {"hold with data", header(MessageKind::kHold, [](Header& h) { h.dataSize = 4; }),
             kPipe},
            {"hold without an end", hold},
            {"call among one-way calls", with(hold, plain(kCall)), kPipe},
            {"report of others' calls", with(hold, plain(MessageKind::kServed)), kPipe},
    };
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    const auto pipe = newPipe();
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.what);
        const unique_fd socket = connectToTarget();
        std::vector<int> descriptors;
        if (testCase.brings == kFile) descriptors = {file};
        if (testCase.brings >= kPipe) descriptors.assign(testCase.brings - kFile, pipe[1]);
        sendBytes(socket, testCase.bytes, descriptors);
        EXPECT_TRUE(ends(socket));
    }
}

TEST_F(HostileTest, RecordsThatLieHarmNobodysObjects) {
    const std::string target = mSocket.filename();
    const PeerProcess third("third");
    ASSERT_NE(third.peer, nullptr);
    const auto real = lookUp("third");
    ASSERT_TRUE(real.has_value());
    const ObjectRecord& truth = real->message.table.objects[0];
    const std::string thirdName(binder::endpointOf(truth));
    const auto pipe = newPipe();
    struct Case {
        const char* what;
        std::string endpoint;
        uint64_t id;
        int end;
        binder_status_t status = STATUS_OK;
        bool isCallable = false;
    };
    const std::vector<Case> cases = {
            {"of nobody", "1234567.0123456789abcdef", 1, pipe[1]},
            {"another's object, one's own pipe", thirdName, truth.id, pipe[1], STATUS_OK, true},
            {"another's object, the wrong end", thirdName, truth.id, pipe[0], STATUS_OK, true},
            {"another number for its pipe", thirdName, truth.id + 1, real->descriptors[0]},
            {"another owner of its pipe", "1.0123456789abcdef", truth.id, real->descriptors[0]},
            {"the target's object, one's own pipe", target, mTarget, pipe[1], STATUS_DEAD_OBJECT},
            {"none of the target's", target, mTarget + 1, pipe[1], STATUS_DEAD_OBJECT},
    };
    // The lie comes first, and stays while the target gets the object from who has it.
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        ASSERT_TRUE(mPeer->keep(nullptr).isOk());
        const Bytes lie = call(ITestPeer::TRANSACTION_keep, {binderAt(0, test.endpoint, test.id)});
        EXPECT_EQ(statusOf(ask(connectToTarget(), lie, {test.end})), test.status);
        EXPECT_EQ(mPeer->callKept().isOk(), test.isCallable);
        int32_t calls = 0;
        EXPECT_TRUE(mPeer->descend(third.peer, 1, &calls).isOk());
        EXPECT_TRUE(mPeer->keep(third.peer).isOk());
        EXPECT_TRUE(mPeer->callKept().isOk());
    }
    EXPECT_TRUE(mPeer->keep(nullptr).isOk());
}

TEST_F(HostileTest, ObjectsThatOneWasNotGivenAreDead) {
    for (const uint64_t called : {mTarget + 1, mTarget - 1, uint64_t{0}, uint64_t{1}}) {
        const auto answer =
                ask(connectToTarget(),
                    messageOf(headerOf(MessageKind::kCall, FIRST_CALL_TRANSACTION, called)));
        EXPECT_EQ(statusOf(answer), STATUS_DEAD_OBJECT);
    }
}

TEST_F(HostileTest, CallsWithinEachOtherAreBounded) {
    // Each question for the class of what it is given is answered with another such call.
    const unique_fd socket = connectToTarget();
    const auto pipe = newPipe();
    const Bytes bytes = call(ITestPeer::TRANSACTION_echoPeer, {binderAt(0, ownName())});
    const auto isQuestion = [](const std::optional<Answer>& answer) {
        return answer.has_value() && answer->message.header.kind == MessageKind::kCall;
    };
    size_t questions = 0;
    auto answer = ask(socket, bytes, {pipe[1]});
    for (; isQuestion(answer) && questions < 2 * binder::kMaxNesting; ++questions)
        answer = ask(socket, bytes, {pipe[1]});
    EXPECT_EQ(statusOf(answer), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(questions, binder::kMaxNesting);
    // All of them end as they should when they are answered.
    const Bytes refusal = messageOf(headerOf(MessageKind::kReply, 0));
    for (; questions > 0; --questions)
        EXPECT_EQ(statusOf(ask(socket, refusal)), STATUS_OK);
}

TEST_F(HostileTest, LinesForWaitingThreadsAreChecked) {
    const auto pipe = newPipe();
    std::array<int, 2> pair{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    const unique_fd own(pair[0]);
    unique_fd theirs(pair[1]);
    struct Case {
        const char* what;
        pid_t waiting;
        int line;
        bool isServed;
    };
    int asker = 0;
    for (const Case& test : {Case{"for nobody", 1, theirs, false},
                             {"no socket", mProcess.child.pid(), pipe[1], false},
                             {"whole", mProcess.child.pid(), theirs, true}}) {
        SCOPED_TRACE(test.what);
        // One that is found not to listen is dead from then on.
        const ObjectRecord object = binderAt(0, ownName(++asker));
        const unique_fd socket = connectToTarget();
        // The target's thread waits for the answer to what it asks.
        const auto question =
                ask(socket, call(ITestPeer::TRANSACTION_echoPeer, {object}), {pipe[1]});
        ASSERT_TRUE(question.has_value());
        ASSERT_EQ(question->message.header.kind, MessageKind::kCall);
        sendBytes(socket,
                  messageOf(headerOf(MessageKind::kLine, 0, static_cast<uint64_t>(test.waiting))),
                  {test.line});
        if (test.isServed) {
            const auto ping = '_' << 24 | 'P' << 16 | 'N' << 8 | 'G';
            EXPECT_EQ(statusOf(ask(own, messageOf(headerOf(MessageKind::kCall, ping, mTarget)))),
                      STATUS_OK);
        } else {
            EXPECT_TRUE(ends(socket));
        }
    }
}

TEST_F(HostileTest, ShellCommandReachesTheObject) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    std::array<unique_fd, 3> streams;
    std::vector<ObjectRecord> records;
    Bytes data;
    append(uint32_t{3}, &data);  // a list, each of which is there: a word, and one that is 0
    for (unique_fd& stream : streams) {
        stream.reset(memfd_create("stream", MFD_CLOEXEC));
        append(uint64_t{1}, &data);
        records.push_back(descriptorAt(static_cast<uint32_t>(data.size())));
        appendObject('f', &data);
    }
    ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), std::vector<std::string>{"do", "it"}),
              STATUS_OK);
    const Bytes arguments = bytesOf(parcel.get());
    data.insert(data.end(), arguments.begin(), arguments.end());
    const auto command = '_' << 24 | 'C' << 16 | 'M' << 8 | 'D';
    EXPECT_EQ(statusOf(ask(connectToTarget(),
                           messageOf(headerOf(MessageKind::kCall, command, mTarget), data, records),
                           {streams[0], streams[1], streams[2]})),
              STATUS_OK);
    std::array<char, 16> text{};
    EXPECT_EQ(pread(streams[1], text.data(), text.size(), 0), 8);
    EXPECT_STREQ(text.data(), "[do][it]");
    EXPECT_EQ(pread(streams[2], text.data(), text.size(), 0), 1);
    EXPECT_EQ(text[0], '2');
}

TEST_F(HostileTest, ComplaintsDoNotWaitForTheirReader) {
    const auto pipe = newPipe();
    const Bytes page(4096);
    while (write(pipe[1], page.data(), page.size()) > 0) {
    }
    ASSERT_EQ(fcntl(pipe[1], F_SETFL, 0), 0);
    const unique_fd own(dup(STDERR_FILENO));
    dup2(pipe[1], STDERR_FILENO);
    const PeerProcess process("unread");
    dup2(own, STDERR_FILENO);
    ASSERT_NE(process.peer, nullptr);
    const unique_fd socket = connectRaw(socketOf(process.child.pid()));
    sendBytes(socket, Bytes(5, 0x4d));
    EXPECT_TRUE(ends(socket));
    EXPECT_EQ(AIBinder_ping(process.peer->asBinder().get()), STATUS_OK);
}

TEST_F(HostileTest, OneProcessTakesNoMoreThanItsShareOfDescriptors) {
    const unique_fd file(memfd_create("hostile", MFD_CLOEXEC));
    const std::vector<int> most(binder::kMaxDescriptors, file);
    Bytes data = tokenOf(ITestPeer::descriptor);
    append(static_cast<uint32_t>(most.size()), &data);
    std::vector<ObjectRecord> records;
    for (size_t i = 0; i < most.size(); ++i) {
        append(uint64_t{1}, &data);
        records.push_back(descriptorAt(static_cast<uint32_t>(data.size())));
        appendObject('f', &data);
    }
    const auto filesTo = [&](MessageKind kind, transaction_code_t code) {
        return messageOf(headerOf(kind, code, mTarget), data, records);
    };
    const Bytes echo = filesTo(MessageKind::kCall, ITestPeer::TRANSACTION_echoDescriptors);
    const Bytes post = filesTo(MessageKind::kOneway, ITestPeer::TRANSACTION_post);
    const Bytes hold = messageOf(headerOf(MessageKind::kHold, 0, mTarget));
    const Bytes whole = messageOf(headerOf(MessageKind::kCall), Bytes(16));
    const Bytes half(whole.begin(), whole.begin() + 40);
    const auto end = lookUp("target");
    ASSERT_TRUE(end.has_value());

    struct Case {
        const char* what;
        int connections;
        std::function<void(int socket)> say;
    };
    const std::vector<Case> cases = {
            {"silent connections", 400, [](int) {}},
            {"half messages", 400, [&](int socket) { sendBytes(socket, half, most); }},
            {"late descriptors", 400,
             [&](int socket) {
                 sendBytes(socket, half);
                 sendBytes(socket, {whole.begin() + 40, whole.end()}, most);
             }},
            {"replies that nobody reads", 10,
             [&](int socket) {
                 for (int i = 0; i < 50; ++i)
                     sendBytes(socket, echo, most);
             }},
            {"one-way calls that wait", 10,
             [&](int socket) {
                 sendBytes(socket, hold, {end->descriptors[0]});
                 for (int i = 0; i < 3; ++i)
                     sendBytes(socket, post, most);
             }},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        ASSERT_TRUE(mPeer->holdPosts().isOk());
        std::vector<unique_fd> sockets;
        for (int i = 0; i < test.connections; ++i)
            test.say(sockets.emplace_back(connectToTarget()));
        for (const unique_fd& socket : sockets)
            EXPECT_TRUE(eventually([&] { return isAllRead(socket) || hasEnded(socket); }));
        expectNewcomersAreServed();
        EXPECT_TRUE(eventually([this] { return openDescriptors() <= mDescriptors + kShare; }))
                << openDescriptors() - mDescriptors << " descriptors";
        sockets.clear();
        ASSERT_TRUE(mPeer->releasePosts().isOk());
        EXPECT_TRUE(eventually([this] { return openDescriptors() <= mDescriptors; }));
    }
}

}  // namespace
}  // namespace platformtest
