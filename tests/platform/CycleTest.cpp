#include <atomic>
#include <memory>

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <gmock/gmock.h>

#include "tests/platform/TestPeer.h"

namespace platformtest {
namespace {

/** Keeps each binder that it is given until its process dies. */
class Registrar : public TestPeer {
  public:
    ndk::ScopedAStatus keep(const std::shared_ptr<ITestPeer>& peer) override {
        auto* const record = new Record{this, peer};
        const binder_status_t status =
                AIBinder_linkToDeath(peer->asBinder().get(), mRecipient.get(), record);
        if (status != STATUS_OK) delete record;
        return ndk::ScopedAStatus::fromStatus(status);
    }

    int deaths() const { return mDeaths; }

  private:
    struct Record {
        Registrar* registrar;
        std::shared_ptr<ITestPeer> peer;
    };
    static void onDied(void* cookie) {
        const std::unique_ptr<Record> record(static_cast<Record*>(cookie));
        ++record->registrar->mDeaths;
    }

    std::atomic<int> mDeaths{0};
    const ndk::ScopedAIBinder_DeathRecipient mRecipient{AIBinder_DeathRecipient_new(onDied)};
};

// Registers a callback, uses what the registrar makes for it, and waits to be killed.
const harness::Role kClient("client", [](harness::Parent& parent) {
    const std::shared_ptr<ITestPeer> registrar = peerNamed("registrar");
    const auto callback = ndk::SharedRefBase::make<TestPeer>();
    std::shared_ptr<ITestPeer> created;
    int32_t calls = 0;
    const bool well = registrar->keep(callback).isOk() && registrar->create(&created).isOk() &&
                      callback->descend(created, 2, &calls).isOk() && created->post(1).isOk();
    parent.say(well ? "registered" : "failed");
    parent.untilGone();
});

TEST(CycleTest, ClientsThatComeAndAreKilledLeaveNothing) {
    prepareProcess();
    const auto registrar = ndk::SharedRefBase::make<Registrar>();
    const ndk::SpAIBinder binder = registrar->asBinder();
    ASSERT_EQ(AServiceManager_addService(binder.get(), "registrar"), EX_NONE);

    const size_t descriptors = harness::openDescriptors();
    const int32_t references = AIBinder_debugGetRefCount(binder.get());
    const int count = harness::countOr(10'000);
    for (int i = 0; i < count; ++i) {
        harness::Child client("client");
        ASSERT_EQ(client.hear(), "registered");
        client.kill();
    }
    EXPECT_TRUE(eventually([&] { return registrar->deaths() == count && TestPeer::live() == 1; }));
    EXPECT_TRUE(eventually([&] { return harness::openDescriptors() == descriptors; }))
            << harness::openDescriptors() << " instead of " << descriptors;
    EXPECT_TRUE(eventually([&] { return AIBinder_debugGetRefCount(binder.get()) == references; }));
}

}  // namespace
}  // namespace platformtest
