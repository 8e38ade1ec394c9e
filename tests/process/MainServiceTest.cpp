#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <gmock/gmock.h>

#include "tests/process/HostTest.h"
#include "tests/support/ProcessHarness.h"

namespace process_test {
namespace {

using ndk::ScopedAStatus;
using ndk::SharedRefBase;
using testing::ElementsAre;
using testing::HasSubstr;

/** Which callback heard of which feature. */
struct Heard {
    int64_t id;
    int32_t feature;
    std::vector<int32_t> values;
    bool operator==(const Heard&) const = default;
};

class Callback : public display::BnVelaCallback {
  public:
    Callback(int64_t id, Mailbox<Heard>* heard) : mId(id), mHeard(heard) {}

    ScopedAStatus onFeatureChanged(int32_t feature, const std::vector<int32_t>& values) override {
        mHeard->put({mId, feature, values});
        return ScopedAStatus::ok();
    }

  private:
    const int64_t mId;
    Mailbox<Heard>* const mHeard;
};

/** A soft client that answers with its own number, or holds the chip up until it is told to go on.
 */
class SoftClient : public display::BnSoftVelaClient {
  public:
    explicit SoftClient(int32_t answer) : mAnswer(answer) {}

    ScopedAStatus setConfig(int64_t id, int32_t, const std::vector<int32_t>&,
                            int32_t* result) override {
        asked.put(id);
        *result = mAnswer;
        return ScopedAStatus::ok();
    }

    ScopedAStatus getConfig(int64_t id, int32_t, const std::vector<int32_t>& values,
                            std::vector<int32_t>* result) override {
        asked.put(id);
        *result = values;
        return mAnswer < 0 ? ScopedAStatus::fromServiceSpecificError(mAnswer) : ScopedAStatus::ok();
    }

    Mailbox<int64_t> asked;

  private:
    const int32_t mAnswer;
};

/** A soft client that never answers. */
class MuteSoftClient : public SoftClient {
  public:
    MuteSoftClient() : SoftClient(0) {}

    ScopedAStatus setConfig(int64_t id, int32_t, const std::vector<int32_t>&, int32_t*) override {
        asked.put(id);
        for (;;)
            pause();
    }

    ScopedAStatus getConfig(int64_t id, int32_t, const std::vector<int32_t>&,
                            std::vector<int32_t>*) override {
        asked.put(id);
        for (;;)
            pause();
    }
};

const harness::Role kMuteSoftClient("mute soft client", [](harness::Parent& parent) {
    const auto client = SharedRefBase::make<MuteSoftClient>();
    const bool isOk = findService()->registerSoftVelaClient(1, client).isOk();
    parent.say(isOk ? "registered" : "refused");
    parent.say("asked " + std::to_string(client->asked.take().value_or(-1)));
    parent.untilGone();
});

class MainServiceTest : public HostTest {
  protected:
    void registerCallback(int64_t id) {
        ASSERT_TRUE(vela->registerCallback(id, SharedRefBase::make<Callback>(id, &heard)).isOk());
    }

    /** The identifiers that hear of the next feature event, in order. */
    std::vector<int64_t> hearers(size_t count) {
        batch("feature 9 4 5; wait");
        std::vector<int64_t> ids;
        for (size_t i = 0; i < count; ++i) {
            const auto next = heard.take();
            if (!next.has_value()) break;
            EXPECT_EQ(next->feature, 9);
            EXPECT_THAT(next->values, ElementsAre(4, 5));
            ids.push_back(next->id);
        }
        // The chip has waited for every callback's return, so nothing is on its way any more.
        EXPECT_TRUE(heard.empty());
        return ids;
    }

    Mailbox<Heard> heard;
};

TEST_F(MainServiceTest, deliversInAscendingOrderAndAfterReplacement) {
    for (const int64_t id : {5, 1, 3, -2})
        registerCallback(id);
    EXPECT_THAT(hearers(4), ElementsAre(-2, 1, 3, 5));
    registerCallback(3);  // replaces
    EXPECT_THAT(hearers(4), ElementsAre(-2, 1, 3, 5));
    for (const int64_t id : {-2, 3, 4})
        ASSERT_TRUE(vela->registerCallback(id, nullptr).isOk());
    EXPECT_THAT(hearers(2), ElementsAre(1, 5));
}

TEST_F(MainServiceTest, forgetsAKilledCallbackAndStillTellsTheOthers) {
    const auto monitor = startMonitor({"--id", "2"});
    registerCallback(1);
    registerCallback(3);
    monitor->sendSignal(SIGKILL);
    monitor->wait();
    // With or without the notification having come: the dead one stops nobody.
    EXPECT_THAT(hearers(2), ElementsAre(1, 3));
    awaitLog("Noticed AIDL death of IVelaCallback 0x2");
    EXPECT_THAT(hearers(2), ElementsAre(1, 3));
}

TEST_F(MainServiceTest, aReplacedClientsDeathRemovesNothing) {
    const auto replaced = startMonitor({"--id", "7"});
    const auto other = startMonitor({"--id", "8"});
    registerCallback(7);
    replaced->sendSignal(SIGKILL);
    replaced->wait();
    other->sendSignal(SIGKILL);
    other->wait();
    awaitLog("Noticed AIDL death of IVelaCallback 0x8");
    EXPECT_THAT(hearers(1), ElementsAre(7));
    EXPECT_EQ(host->errors().find("IVelaCallback 0x7"), std::string::npos) << host->errors();
}

TEST_F(MainServiceTest, keepsTwoKindsUnderOneIdentifierApart) {
    const auto soft = startMonitor({"--id", "6", "--soft", "--soft-result", "12"});
    registerCallback(6);
    EXPECT_THAT(batch("soft-set 6 1; wait; last"), HasSubstr("12"));
    soft->sendSignal(SIGKILL);
    soft->wait();
    awaitLog("Noticed AIDL death of ISoftVelaClient 0x6");
    EXPECT_THAT(batch("soft-set 6 1; wait; last"), HasSubstr("-1"));
    EXPECT_THAT(hearers(1), ElementsAre(6));
}

TEST_F(MainServiceTest, asksTheLowestSoftClientWhicheverIsMeant) {
    const auto low = SharedRefBase::make<SoftClient>(20);
    const auto high = SharedRefBase::make<SoftClient>(70);
    ASSERT_TRUE(vela->registerSoftVelaClient(7, high).isOk());
    ASSERT_TRUE(vela->registerSoftVelaClient(2, low).isOk());
    EXPECT_THAT(batch("soft-set 7 1; wait; last"), HasSubstr("20"));
    EXPECT_EQ(low->asked.take(), 7);
    ASSERT_TRUE(vela->registerSoftVelaClient(2, nullptr).isOk());
    EXPECT_THAT(batch("soft-set 2 1; wait; last"), HasSubstr("70"));
    EXPECT_EQ(high->asked.take(), 2);
    ASSERT_TRUE(vela->registerSoftVelaClient(1, SharedRefBase::make<SoftClient>(-33)).isOk());
    EXPECT_THAT(batch("soft-get 1 1; wait; last"), HasSubstr("-33"));
}

TEST_F(MainServiceTest, aSoftClientKilledInTheMiddleOfAnEventAnswersMinusOneToSetAndZeroToGet) {
    const struct {
        const char* request;
        const char* answer;
    } kCases[] = {{"soft-set 5 2 3", "-> -1"}, {"soft-get 5 2 3", "-> 0 []"}};
    for (const auto& [request, answer] : kCases) {
        SCOPED_TRACE(request);
        harness::Child client("mute soft client");
        ASSERT_EQ(client.hear(), "registered");
        batch(request);
        ASSERT_EQ(client.hear(), "asked 5");
        client.kill();
        EXPECT_THAT(batch("wait; last"), HasSubstr(answer));
        awaitLog("Noticed AIDL death of ISoftVelaClient 0x1");
    }
}

TEST_F(MainServiceTest, aStalledClientHoldsUpNeitherRegistrationNorRequests) {
    const auto stalled = startMonitor({"--id", "1"});
    stalled->sendSignal(SIGSTOP);
    batch("feature 9 4 5");  // the chip's thread now waits for the stalled client
    registerCallback(2);
    ASSERT_TRUE(vela->registerCallback(1, nullptr).isOk());
    int32_t code = -1;
    EXPECT_TRUE(vela->velaConfigureSet(3, {1, 2}, &code).isOk());
    std::vector<int32_t> values;
    EXPECT_TRUE(vela->velaConfigureGet(3, {}, &values).isOk());
    EXPECT_THAT(values, ElementsAre(1, 2));
    stalled->sendSignal(SIGKILL);
    stalled->wait();
    batch("wait");
    while (!heard.empty())
        heard.take();  // it may have registered before the chip's thread set out
    EXPECT_THAT(hearers(1), ElementsAre(2));
}

TEST_F(MainServiceTest, survivesClientsThatDieWhileTheyRegister) {
    registerCallback(1);
    ASSERT_THAT(hearers(1), ElementsAre(1));  // all that this process and the host keep is open now
    const size_t before = hostDescriptors();
    std::atomic<bool> done = false;
    std::thread events([&] {
        while (!done)
            batch("feature 8; wait");
    });
    for (int i = 0; i < 40; ++i) {
        Program client("velactl", {"monitor", "--id", std::to_string(10 + i % 3)});
        // From before it has connected until after it has registered.
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(400 * i);
        while (std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
        client.sendSignal(SIGKILL);
        client.wait();
    }
    done = true;
    events.join();
    while (!heard.empty())
        heard.take();
    EXPECT_THAT(hearers(1), ElementsAre(1));
    await("descriptors left open", [&] { return hostDescriptors() <= before; });
}

TEST_F(MainServiceTest, buffersLeaveNoDescriptorBehind) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    const ndk::ScopedFileDescriptor fd(fcntl(fileno(file), F_DUPFD_CLOEXEC, 0));
    std::fclose(file);
    int32_t code = 0;
    ASSERT_TRUE(vela->velaConfigureBuffer(1, 2, fd, 16, &code).isOk());
    const size_t before = hostDescriptors();  // that of the request, at the most, included
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(vela->velaConfigureBuffer(1, 2, fd, 16, &code).isOk());
    await("descriptors left open", [&] { return hostDescriptors() <= before; });
    EXPECT_NE(fcntl(fd.get(), F_GETFD), -1);
}

TEST_F(MainServiceTest, tellsClientsOfTheHostsDeathAndIsFoundAgain) {
    Mailbox<bool> died;
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(
            [](void* cookie) { static_cast<Mailbox<bool>*>(cookie)->put(true); }));
    ASSERT_EQ(AIBinder_linkToDeath(vela->asBinder().get(), recipient.get(), &died), STATUS_OK);
    killHost();
    EXPECT_EQ(died.take(), true);
    int32_t code = 0;
    EXPECT_EQ(vela->velaConfigureSet(1, {}, &code).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(AIBinder_isAlive(vela->asBinder().get()));
    startHost();
    EXPECT_TRUE(vela->velaConfigureSet(1, {}, &code).isOk());
    registerCallback(4);
    EXPECT_THAT(hearers(1), ElementsAre(4));
}

}  // namespace
}  // namespace process_test
