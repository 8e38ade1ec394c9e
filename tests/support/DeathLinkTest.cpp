#include "support/DeathLink.h"

#include <gtest/gtest.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>

#include "tests/support/DeathSpy.h"

namespace lmfg::support {
namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;

int gRecords = 0;
int gNotified = 0;

struct Record : DeathLink {
    Record() : DeathLink(onBinderDied) { ++gRecords; }
    ~Record() override { --gRecords; }
    static void onBinderDied(void* cookie) {
        const auto* record = fromCookie<Record>(cookie);
        if (record != nullptr && record->isHeld()) ++gNotified;
    }
};

struct Client : display::BnVelaCallback {
    ndk::ScopedAStatus onFeatureChanged(int32_t, const std::vector<int32_t>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

class DeathLinkTest : public testing::Test {
  protected:
    DeathLinkTest() { gNotified = 0; }

    const std::shared_ptr<Client> mClient = ndk::SharedRefBase::make<Client>();
    const ndk::SpAIBinder mBinder = mClient->asBinder();
    DeathLink::Held<Record> mRecord{new Record};
};

TEST_F(DeathLinkTest, IsItsOwnCookieAndFreedWhenBothHaveLetGo) {
    {
        vela::test::DeathSpy spy;
        mRecord->link(mClient);
        ASSERT_EQ(spy.links().size(), 1u);
        EXPECT_EQ(spy.links()[0].binder, mBinder.get());
        EXPECT_EQ(spy.links()[0].cookie, mRecord.get());
        auto notification = spy.begin();
        mRecord->unlink(mClient);
        EXPECT_EQ(spy.unlinked(), 1u);
        mRecord.reset();
        EXPECT_EQ(spy.recipients(), 0u);
        EXPECT_EQ(gRecords, 1);
        notification.deliver();
        EXPECT_EQ(gRecords, 0);
        EXPECT_EQ(gNotified, 0);

        mRecord.reset(new Record);
        mRecord->link(mClient);
        spy.die();
        EXPECT_EQ(gNotified, 1);
        EXPECT_EQ(gRecords, 1);
        mRecord->link(mClient);
        Record::onBinderDied(nullptr);
        EXPECT_EQ(gNotified, 1);
        Record* const held = mRecord.get();
        mRecord.reset();
        held->unlink(mClient);
        EXPECT_EQ(spy.unlinked(), 1u) << "there is nothing left to unlink with";
        EXPECT_EQ(gRecords, 1) << "the link of a deleted recipient ends with its proxy";
    }
    EXPECT_EQ(gRecords, 0);
}

TEST_F(DeathLinkTest, IsFreedWhereNoLinkIsMade) {
    // The platform refuses the first, the second has no binder, the third is none.
    const std::shared_ptr<ndk::ICInterface> kClients[] = {
            mClient, ndk::SharedRefBase::make<display::IVelaCallbackDefault>(), nullptr};
    for (const auto& client : kClients) {
        mRecord->link(client);
        mRecord->unlink(client);
    }
    EXPECT_EQ(gRecords, 1);
    mRecord.reset();
    EXPECT_EQ(gRecords, 0);
}

}  // namespace
}  // namespace lmfg::support
