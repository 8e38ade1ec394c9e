#include "tests/service/ServiceTest.h"

#include <thread>

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
using testing::InSequence;
using Member = lmfg::VelaServiceCallbacks::Member;

class LifecycleTest : public ServiceTest {
  protected:
    /** The members of the library that are set, in its order. */
    static std::vector<int> membersSet() {
        std::vector<int> set;
        for (int member = 0; member <= static_cast<int>(Member::kStringQuery); ++member) {
            if (library().isSet(static_cast<Member>(member))) set.push_back(member + 1);
        }
        return set;
    }
    void makeComposer() {
        std::shared_ptr<IVelaComposerClient> composer;
        EXPECT_EQ("ok", told(mService->createComposerClient(&composer)));
    }
};

TEST_F(LifecycleTest, FillsItsMembersAndEmptiesTheOnesItShares) {
    EXPECT_THAT(membersSet(), ElementsAre(1, 6, 7));
    makeComposer();
    EXPECT_THAT(membersSet(), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    const auto second = ndk::SharedRefBase::make<VelaDefault>();
    EXPECT_THAT(membersSet(), ElementsAre(1, 2, 6, 7));
    makeComposer();
    mService.reset();
    EXPECT_THAT(membersSet(), ElementsAre(2));
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

TEST_F(LifecycleTest, InitializePassesTheLowBitsInTheLibrarysOrder) {
    const struct {
        int64_t value4;
        int32_t value1;
        int32_t value2;
        uint32_t expected[3];
    } kCases[] = {
            {0x1'0000'0007, -1, INT32_MIN, {7, 0xFFFFFFFF, 0x80000000}},
            {-2, 0, INT32_MAX, {0xFFFFFFFE, 0, 0x7FFFFFFF}},
    };
    for (const auto& it : kCases) {
        const InSequence sequence;
        EXPECT_CALL(*mChip, initialize(it.expected[0], it.expected[1], it.expected[2]));
        EXPECT_CALL(*mChip, initSoftVela());
        DisplayConfigVariableInfo info;
        info.value1 = it.value1;
        info.value2 = it.value2;
        info.value3 = 99;
        info.value4 = it.value4;
        info.value5 = 98;
        EXPECT_EQ("ok", told(mService->initialize(info)));
    }
    EXPECT_EQ("unknown", told(mDegraded->initialize({})));
}

TEST_F(LifecycleTest, InitializeReplaysPendingBatchesOnceInTheirOrder) {
    auto& pending = (*mService).*privateMember(vela::test::PendingBatches());
    pending = {"first", "", "third"};
    {
        const InSequence sequence;
        EXPECT_CALL(*mChip, initialize);
        EXPECT_CALL(*mChip, initSoftVela);
        for (const char* text : {"first", "", "third"}) {
            EXPECT_CALL(*mChip,
                        velaConfigureBatch(1024, lmfg::VelaService::hidl_string(text), testing::_))
                    .WillOnce(vela::test::answering("ignored", -5));
        }
        EXPECT_CALL(*mChip, initialize);
        EXPECT_CALL(*mChip, initSoftVela);
    }
    EXPECT_EQ("ok", told(mService->initialize({})));
    EXPECT_TRUE(pending.empty());
    EXPECT_EQ("ok", told(mService->initialize({})));
}

TEST_F(LifecycleTest, OnlyStartupBatchesArePendingAndStayWithoutALibrary) {
    const auto& pending = (*mDegraded).*privateMember(vela::test::PendingBatches());
    for (const int32_t type : {0, 1023, 1025, -1024, INT32_MIN}) {
        EXPECT_EQ("-1 \"M\"", ask(*mDegraded, &VelaDefault::velaConfigureBatch, type, "no"));
    }
    EXPECT_TRUE(pending.empty());
    const std::string withZero("a\0b", 3);
    for (const std::string& text : {withZero, std::string(), withZero}) {
        EXPECT_EQ("-1 \"M\"", ask(*mDegraded, &VelaDefault::velaConfigureBatch, 1024, text));
    }
    EXPECT_EQ("unknown", told(mDegraded->initialize({})));
    EXPECT_THAT(pending, ElementsAre(lmfg::VelaService::hidl_string(withZero), "",
                                     lmfg::VelaService::hidl_string(withZero)));
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
