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
#include <gmock/gmock.h>

#include "tests/process/HostTest.h"

namespace process_test {
namespace {

using ndk::ScopedAStatus;
using ndk::SharedRefBase;
using testing::ElementsAre;

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

    Mailbox<int64_t> heard;
};

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
