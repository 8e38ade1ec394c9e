#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "host/chip/ChipHost.h"
#include "tests/support/MockChip.h"

namespace lmfg {
namespace {

using ::testing::ElementsAre;
using ::testing::StrictMock;
using Member = VelaServiceCallbacks::Member;

class FacadeTest : public ::testing::Test {
  protected:
    FacadeTest() {
        installChip(mChip);
        mService = VelaService::init();
    }
    ~FacadeTest() override { installChip(nullptr); }

    std::vector<Member> setMembers() const {
        std::vector<Member> members;
        for (int i = 0; i < 8; ++i) {
            if (events().isSet(Member{i})) members.push_back(Member{i});
        }
        return members;
    }

    VelaServiceCallbacks events() const { return VelaServiceCallbacks(*mService); }

    std::shared_ptr<StrictMock<MockChip>> mChip = std::make_shared<StrictMock<MockChip>>();
    VelaService* mService = nullptr;
};

TEST_F(FacadeTest, ServiceObjectFollowsTheChip) {
    EXPECT_NE(mService, nullptr);
    EXPECT_EQ(VelaService::init(), mService);
    mService->registerVelaCallback([](int, const auto&) {}, {}, {}, {}, {});

    installChip(mChip);
    mService = VelaService::init();
    EXPECT_THAT(setMembers(), ElementsAre()) << "a new installation starts without functions";

    installChip(nullptr);
    EXPECT_EQ(VelaService::init(), nullptr);
}

TEST_F(FacadeTest, EachRegistrationWritesItsMembers) {
    mService->registerVelaCallback([](int, const auto&) {}, {}, [](int64_t, int) { return 0; }, {},
                                   {});
    EXPECT_THAT(setMembers(), ElementsAre(Member::kFeatureChanged));
    mService->registerSoftVelaClient([](int64_t, int, const auto&) { return 0; }, {},
                                     [](int, const std::string&) { return std::string(); });
    EXPECT_THAT(setMembers(),
                ElementsAre(Member::kFeatureChanged, Member::kSoftSetConfig, Member::kStringQuery));
    mService->registerComposerCallback([](int64_t, int, const auto&) { return std::vector<int>(); },
                                       [](int64_t) {}, [](int64_t, int) {},
                                       [](int64_t, int, int64_t) { return VelaContentSamples(); });
    EXPECT_THAT(setMembers(), ElementsAre(Member::kFeatureChanged, Member::kConfigChanged,
                                          Member::kRefreshRequested, Member::kPowerChanged,
                                          Member::kContentSampling, Member::kSoftSetConfig,
                                          Member::kStringQuery));
    // Whoever registers last owns the members that both share.
    mService->registerVelaCallback({}, {}, {}, {}, {});
    mService->registerSoftVelaClient({}, {}, {});
    EXPECT_THAT(setMembers(), ElementsAre(Member::kConfigChanged));
}

TEST_F(FacadeTest, MembersLieBehindOnePointerInTheAgreedOrder) {
    int called = 0;
    mService->registerVelaCallback([&](int, const auto&) { called = 1; },
                                   [&](int64_t) { called = 3; }, {},
                                   [&](int64_t, int) { called = 4; },
                                   [&](int64_t, int, int64_t) {
                                       called = 5;
                                       return VelaContentSamples();
                                   });
    mService->registerSoftVelaClient([&](int64_t, int, const auto&) { return called = 6; },
                                     [&](int64_t, int, const auto&, int&) {
                                         called = 7;
                                         return std::vector<int>();
                                     },
                                     [&](int, const std::string&) {
                                         called = 8;
                                         return std::string();
                                     });
    const auto member = [this]<typename F>(F*, size_t order) -> F& {
        auto* bytes = reinterpret_cast<char*>(mService) + sizeof(void*);
        return *reinterpret_cast<F*>(bytes + (order - 1) * sizeof(std::function<void()>));
    };
    int status = 0;
    member(static_cast<VelaService::FeatureChanged*>(nullptr), 1)(0, {});
    EXPECT_EQ(called, 1);
    EXPECT_FALSE(member(static_cast<VelaService::ConfigChanged*>(nullptr), 2));
    member(static_cast<VelaService::RefreshRequested*>(nullptr), 3)(0);
    EXPECT_EQ(called, 3);
    member(static_cast<VelaService::PowerChanged*>(nullptr), 4)(0, 0);
    EXPECT_EQ(called, 4);
    member(static_cast<VelaService::ContentSampling*>(nullptr), 5)(0, 0, 0);
    EXPECT_EQ(called, 5);
    member(static_cast<VelaService::SoftSetConfig*>(nullptr), 6)(0, 0, {});
    EXPECT_EQ(called, 6);
    member(static_cast<VelaService::SoftGetConfig*>(nullptr), 7)(0, 0, {}, status);
    EXPECT_EQ(called, 7);
    member(static_cast<VelaService::StringQuery*>(nullptr), 8)(0, "");
    EXPECT_EQ(called, 8);
}

TEST_F(FacadeTest, EmptyMembersAreAnsweredNotCalled) {
    const VelaServiceCallbacks raise = events();
    raise.featureChanged(1, {2});
    raise.refreshRequested(1);
    raise.powerChanged(1, 2);
    EXPECT_THAT(raise.configChanged(1, 2, {3}), ElementsAre());
    EXPECT_EQ(raise.contentSampling(1, 2, 3).value1, -1);
    EXPECT_EQ(raise.softSetConfig(1, 2, {3}), -1);
    int status = 0;
    EXPECT_THAT(raise.softGetConfig(1, 2, {3}, status), ElementsAre());
    EXPECT_EQ(status, -1);
    EXPECT_EQ(raise.stringQuery(1, "q"), "");
}

TEST_F(FacadeTest, FunctionsMayRegisterAnewFromWithin) {
    int calls = 0;
    const std::string captured(100, 'x');
    mService->registerVelaCallback(
            [&calls, captured, this](int, const auto&) {
                mService->registerVelaCallback({}, {}, {}, {}, {});
                calls += static_cast<int>(captured.size());
            },
            {}, {}, {}, {});
    events().featureChanged(1, {});
    events().featureChanged(1, {});
    EXPECT_EQ(calls, 100);
}

/// Notes what it sees, and spoils what it is told to.
class NotingObserver : public ChipObserver {
  public:
    std::optional<ChipFault> fault(const ChipCall& call) override {
        return call.operation == mSpoilt ? std::optional(mFault) : std::nullopt;
    }
    void began(const ChipCall& call) override { note("begin", call); }
    void ended(const ChipCall& call, const codec::Json& answer) override {
        note("end", call);
        mLog += answer.dump() + " ";
    }
    void settled(const ChipCall& call) override { note("settled", call); }

    std::string takeLog() { return std::exchange(mLog, {}); }

    std::string mSpoilt;
    ChipFault mFault;

  private:
    void note(const char* what, const ChipCall& call) {
        mLog += std::string(what) + " " + call.operation + call.arguments.dump() +
                (call.cause != nullptr ? std::string("<") + call.cause->operation : "") + " ";
    }

    std::string mLog;
};

TEST_F(FacadeTest, ObserversSeeRequestsAndTheEventsTheyCause) {
    const auto observer = std::make_shared<NotingObserver>();
    installChip(mChip, {observer});
    mService = VelaService::init();
    mService->registerComposerCallback(
            [](int64_t, int, const auto&) { return std::vector<int>{9}; }, {}, {}, {});
    std::shared_ptr<const ChipCall> request;
    EXPECT_CALL(*mChip, velaConfigureSet).WillOnce([&](int, const Chip::hidl_vec<int>&) {
        request = CausedBy::currentRequest();
        return Chip::Return<int32_t>(-8);
    });
    EXPECT_EQ(mService->velaConfigureSet(1, {2}), -8);
    EXPECT_EQ(observer->takeLog(), "begin velaConfigureSet[1,[2]] end velaConfigureSet[1,[2]] -8 ");
    {
        const CausedBy cause(std::exchange(request, nullptr));
        events().configChanged(1, 2, {3});
    }
    EXPECT_EQ(observer->takeLog(),
              "begin configChanged[1,2,[3]]<velaConfigureSet "
              "end configChanged[1,2,[3]]<velaConfigureSet [9] "
              "settled configChanged[1,2,[3]]<velaConfigureSet settled velaConfigureSet[1,[2]] ");
    installChip(nullptr);
}

TEST_F(FacadeTest, FaultsReplaceAnswers) {
    const auto observer = std::make_shared<NotingObserver>();
    installChip(mChip, {observer});
    mService = VelaService::init();
    EXPECT_CALL(*mChip, velaConfigureGet)
            .Times(2)
            .WillRepeatedly([](int, const auto&, const Chip::ValuesResult& result) {
                result(0, {4});
                return Chip::Return<void>();
            });
    const auto get = [&](ChipFault fault) {
        observer->mSpoilt = "velaConfigureGet";
        observer->mFault = fault;
        std::vector<int> seen;
        mService->velaConfigureGet(1, {}, [&](int32_t status, const auto& values) {
            seen.push_back(status);
            seen.insert(seen.end(), values.begin(), values.end());
        });
        return seen;
    };
    EXPECT_THAT(get({.status = -5}), ElementsAre(-5)) << "without asking the chip";
    EXPECT_THAT(get({.status = {}, .answers = 0}), ElementsAre());
    EXPECT_THAT(get({.status = {}, .answers = 2}), ElementsAre(0, 4, 0, 4));
    observer->mFault = {.status = -7};
    observer->mSpoilt = "PresentDisplay";
    EXPECT_EQ(mService->PresentDisplay(), -7);
    observer->mSpoilt = "Present";
    EXPECT_FALSE(mService->Present());
    installChip(nullptr);
}

}  // namespace
}  // namespace lmfg
