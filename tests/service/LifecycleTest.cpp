#include <thread>

#include "tests/service/ServiceTest.h"
#include "tests/support/PrivateMember.h"

namespace vela::test {

using aidl::vendor::lumenforge::hardware::display::VelaDefault;

struct PendingBatches {
    using Type = std::vector<::android::hardware::hidl_string> VelaDefault::*;
    friend Type privateMember(PendingBatches);
};
template struct Open<PendingBatches, &VelaDefault::mPendingBatches>;

}  // namespace vela::test

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using testing::ElementsAre;
using Member = lmfg::VelaServiceCallbacks::Member;

class LifecycleTest : public ServiceTest {
  protected:
    /** The members of the library that are set, by their numbers from 1. */
    static std::string membersSet() {
        std::string set;
        for (int member = 0; member <= static_cast<int>(Member::kStringQuery); ++member) {
            if (library().isSet(static_cast<Member>(member))) set += std::to_string(member + 1);
        }
        return set;
    }
    void makeComposer() {
        std::shared_ptr<IVelaComposerClient> composer;
        EXPECT_EQ("ok", told(mService->createComposerClient(&composer)));
    }
    static auto& pendingOf(VelaDefault& service) {
        return service.*privateMember(vela::test::PendingBatches());
    }
};

TEST_F(LifecycleTest, FillsItsMembersAndEmptiesTheOnesItShares) {
    EXPECT_EQ(membersSet(), "167");
    makeComposer();
    EXPECT_EQ(membersSet(), "1234567");
    const auto second = ndk::SharedRefBase::make<VelaDefault>();
    EXPECT_EQ(membersSet(), "1267");
    makeComposer();
    mService.reset();
    EXPECT_EQ(membersSet(), "2");
}

// The library's members are not guarded: the thread sanitizer tells when two registrations meet.
TEST_F(LifecycleTest, ComposerClientsRegisterOneAfterTheOther) {
    std::vector<std::thread> makers;
    for (int i = 0; i < 4; ++i) {
        makers.emplace_back([this] {
            for (int j = 0; j < 50; ++j)
                makeComposer();
        });
    }
    for (std::thread& maker : makers)
        maker.join();
}

TEST_F(LifecycleTest, InitializePassesTheLowBitsAndReplaysPendingBatchesOnce) {
    DisplayConfigVariableInfo info;
    info.value1 = -1;
    info.value2 = INT32_MIN;
    info.value3 = info.value5 = 99;
    info.value4 = 0x1'0000'0007;
    pendingOf(*mService) = {"first", "", "third"};
    answerWith({.status = -5});
    const std::string started = "initialize[7,4294967295,2147483648] initSoftVela[] ";
    EXPECT_EQ(through(*mService, &VelaDefault::initialize, info),
              started +
                      "velaConfigureBatch[1024,\"first\"] velaConfigureBatch[1024,\"\"] "
                      "velaConfigureBatch[1024,\"third\"] ok");
    EXPECT_TRUE(pendingOf(*mService).empty());
    EXPECT_EQ(through(*mService, &VelaDefault::initialize, info), started + "ok");
    EXPECT_EQ(through(*mDegraded, &VelaDefault::initialize), "unknown");
}

TEST_F(LifecycleTest, OnlyStartupBatchesArePendingAndOnlyWithoutALibrary) {
    const std::string withZero("a\0b", 3);
    for (const int32_t type : {0, 1023, 1024, 1025, -1024, 1024})
        EXPECT_EQ("-1 \"M\"", ask(*mDegraded, &VelaDefault::velaConfigureBatch, type, withZero));
    EXPECT_EQ("unknown", told(mDegraded->initialize({})));
    const lmfg::VelaService::hidl_string kept(withZero);
    EXPECT_THAT(pendingOf(*mDegraded), ElementsAre(kept, kept));
    EXPECT_EQ(kept.size(), pendingOf(*mDegraded)[0].size());

    (void)through(*mService, &VelaDefault::velaConfigureBatch, 1024, withZero);
    EXPECT_TRUE(pendingOf(*mService).empty());
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
