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

/** Tells who heard of a feature event. */
class Callback : public display::BnVelaCallback {
  public:
    Callback(int64_t id, Mailbox<int64_t>* heard) : mId(id), mHeard(heard) {}

    ScopedAStatus onFeatureChanged(int32_t feature, const Values& values) override {
        if (feature == 9) {
            EXPECT_THAT(values, ElementsAre(4, 5));
        }
        mHeard->put(mId);
        return ScopedAStatus::ok();
    }

  private:
    const int64_t mId;
    Mailbox<int64_t>* const mHeard;
};

/** A soft client that never answers. */
class MuteSoftClient : public display::BnSoftVelaClient {
  public:
    ScopedAStatus setConfig(int64_t id, int32_t, const Values&, int32_t*) override {
        return hang(id);
    }
    ScopedAStatus getConfig(int64_t id, int32_t, const Values&, Values*) override {
        return hang(id);
    }

    Mailbox<int64_t> asked;

  private:
    ScopedAStatus hang(int64_t id) {
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
        for (size_t i = 0; i < count; ++i)
            ids.push_back(heard.take().value_or(-1));
        // The chip has waited for every callback's return, so nothing is on its way any more.
        EXPECT_TRUE(heard.empty());
        return ids;
    }

    static void kill(Program& program) {
        program.sendSignal(SIGKILL);
        program.wait();
    }

    Mailbox<int64_t> heard;
};

TEST_F(MainServiceTest, ForgetsAKilledCallbackAndStillTellsTheOthers) {
    const auto monitor = startMonitor({"--id", "2"});
    registerCallback(1);
    registerCallback(3);
    kill(*monitor);
    // With or without the notification having come: the dead one stops nobody.
    EXPECT_THAT(hearers(2), ElementsAre(1, 3));
    awaitLog("Noticed AIDL death of IVelaCallback 0x2");
    EXPECT_THAT(hearers(2), ElementsAre(1, 3));
}

TEST_F(MainServiceTest, AReplacedClientsDeathRemovesNothing) {
    const auto replaced = startMonitor({"--id", "7"});
    const auto other = startMonitor({"--id", "8"});
    registerCallback(7);
    kill(*replaced);
    kill(*other);
    awaitLog("Noticed AIDL death of IVelaCallback 0x8");
    EXPECT_THAT(hearers(1), ElementsAre(7));
    EXPECT_EQ(host->errors().find("IVelaCallback 0x7"), std::string::npos) << host->errors();
}

TEST_F(MainServiceTest, ASoftClientKilledInTheMiddleOfAnEventAnswersMinusOneToSetAndZeroToGet) {
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

TEST_F(MainServiceTest, AStalledClientHoldsUpNeitherRegistrationNorRequests) {
    const auto stalled = startMonitor({"--id", "1"});
    stalled->sendSignal(SIGSTOP);
    batch("feature 9 4 5");  // the chip's thread now waits for the stalled client
    registerCallback(2);
    ASSERT_TRUE(vela->registerCallback(1, nullptr).isOk());
    int32_t code = -1;
    EXPECT_TRUE(vela->velaConfigureSet(3, {1, 2}, &code).isOk());
    Values values;
    EXPECT_TRUE(vela->velaConfigureGet(3, {}, &values).isOk());
    EXPECT_THAT(values, ElementsAre(1, 2));
    kill(*stalled);
    batch("wait");
    while (!heard.empty())
        heard.take();  // it may have registered before the chip's thread set out
    EXPECT_THAT(hearers(1), ElementsAre(2));
}

TEST_F(MainServiceTest, SurvivesClientsThatDieWhileTheyRegister) {
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
        kill(client);
    }
    done = true;
    events.join();
    while (!heard.empty())
        heard.take();
    EXPECT_THAT(hearers(1), ElementsAre(1));
    await("descriptors left open", [&] { return hostDescriptors() <= before; });
}

TEST_F(MainServiceTest, BuffersLeaveNoDescriptorBehind) {
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

TEST_F(MainServiceTest, TellsClientsOfTheHostsDeathAndIsFoundAgain) {
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
