#include "tests/service/ServiceTest.h"

#include <thread>

#include "tests/support/DeathSpy.h"
#include "tests/support/LogCapture.h"

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::_;
using testing::ElementsAre;
using testing::InSequence;
using testing::IsEmpty;
using vela::test::DeathSpy;
using vela::test::LogCapture;
using Member = lmfg::VelaServiceCallbacks::Member;

std::vector<Member> membersSet(const lmfg::VelaServiceCallbacks& library) {
    std::vector<Member> set;
    for (const Member member :
         {Member::kFeatureChanged, Member::kConfigChanged, Member::kRefreshRequested,
          Member::kPowerChanged, Member::kContentSampling, Member::kSoftSetConfig,
          Member::kSoftGetConfig, Member::kStringQuery}) {
        if (library.isSet(member)) set.push_back(member);
    }
    return set;
}

using LifecycleTest = ServiceTest;

TEST_F(LifecycleTest, ConstructionFillsItsMembersAndEmptiesTheOnesItShares) {
    EXPECT_THAT(membersSet(library()), ElementsAre(Member::kFeatureChanged, Member::kSoftSetConfig,
                                                   Member::kSoftGetConfig));

    std::shared_ptr<IVelaComposerClient> composer;
    ASSERT_TRUE(mService->createComposerClient(&composer).isOk());
    EXPECT_EQ(membersSet(library()).size(), 7u);

    const auto second = ndk::SharedRefBase::make<VelaDefault>();
    EXPECT_THAT(membersSet(library()), ElementsAre(Member::kFeatureChanged, Member::kConfigChanged,
                                                   Member::kSoftSetConfig, Member::kSoftGetConfig));
}

TEST_F(LifecycleTest, DestructionEmptiesEvenWhatAComposerClientSet) {
    std::shared_ptr<IVelaComposerClient> composer;
    ASSERT_TRUE(mService->createComposerClient(&composer).isOk());
    mService.reset();
    EXPECT_THAT(membersSet(library()), ElementsAre(Member::kConfigChanged));
}

TEST_F(LifecycleTest, DestructionUnlinksEveryClient) {
    const DeathSpy spy;
    std::vector<ndk::SpAIBinder> binders;
    for (const int64_t id : {3, -1, 7}) {
        const auto callback = makeClient<MockCallback>();
        const auto client = makeClient<MockSoftClient>();
        binders.push_back(callback->asBinder());
        binders.push_back(client->asBinder());
        ASSERT_TRUE(mService->registerCallback(id, callback).isOk());
        ASSERT_TRUE(mService->registerSoftVelaClient(id, client).isOk());
    }
    const std::vector<vela::test::DeathLink> links = spy.links();
    ASSERT_EQ(links.size(), 6u);
    mService.reset();
    EXPECT_EQ(spy.unlinked(), 6u);
    EXPECT_EQ(spy.recipients(), 0u);

    // Notifications that were under way find neither record nor service.
    LogCapture log;
    for (const auto& link : links)
        spy.die(link);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LifecycleTest, ComposerClientsRegisterOneAfterTheOther) {
    // The library's members are not guarded: the thread sanitizer tells when two registrations
    // meet.
    std::vector<std::thread> makers;
    for (int i = 0; i < 4; ++i) {
        makers.emplace_back([this] {
            std::shared_ptr<IVelaComposerClient> client;
            for (int j = 0; j < 50; ++j)
                EXPECT_TRUE(mService->createComposerClient(&client).isOk());
        });
    }
    for (std::thread& maker : makers)
        maker.join();
    EXPECT_TRUE(library().isSet(Member::kRefreshRequested));
}

TEST_F(LifecycleTest, InitializePassesTheLowBitsInTheLibrarysOrder) {
    struct {
        int64_t value4;
        int32_t value1;
        int32_t value2;
        uint32_t expected[3];
    } const cases[] = {
            {1, 2, 3, {1, 2, 3}},
            {0x1'0000'0007, -1, INT32_MIN, {7, 0xFFFFFFFF, 0x80000000}},
            {-2, 0, INT32_MAX, {0xFFFFFFFE, 0, 0x7FFFFFFF}},
    };
    for (const auto& it : cases) {
        const InSequence sequence;
        EXPECT_CALL(*mChip, initialize(it.expected[0], it.expected[1], it.expected[2]));
        EXPECT_CALL(*mChip, initSoftVela());
        DisplayConfigVariableInfo info;
        info.value1 = it.value1;
        info.value2 = it.value2;
        info.value3 = 99;
        info.value4 = it.value4;
        info.value5 = 98;
        EXPECT_TRUE(mService->initialize(info).isOk());
    }
}

TEST_F(LifecycleTest, InitializeReplaysPendingBatchesOnceInTheirOrder) {
    auto& pending = VelaDefaultPeer::pendingBatches(*mService);
    pending = {"first", "", "third"};
    {
        const InSequence sequence;
        EXPECT_CALL(*mChip, initialize);
        EXPECT_CALL(*mChip, initSoftVela);
        for (const char* text : {"first", "", "third"}) {
            EXPECT_CALL(*mChip, velaConfigureBatch(1024, lmfg::VelaService::hidl_string(text), _))
                    .WillOnce([](int, const auto&, const auto& result) {
                        result(-5, "ignored");
                        return lmfg::VelaService::Return<void>();
                    });
        }
        EXPECT_CALL(*mChip, initialize);
        EXPECT_CALL(*mChip, initSoftVela);
    }
    EXPECT_TRUE(mService->initialize({}).isOk());
    EXPECT_TRUE(pending.empty());
    EXPECT_TRUE(mService->initialize({}).isOk());
}

TEST(DegradedLifecycleTest, StartsSilentlyAndRefusesToInitialize) {
    LogCapture log;
    auto service = makeDegraded();
    EXPECT_EQ(codesOf(service->initialize({})), kUnknownError);
    service.reset();
    EXPECT_TRUE(log.take().empty());
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
