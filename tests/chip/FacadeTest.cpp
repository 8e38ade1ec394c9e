#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "host/chip/ChipHost.h"
#include "tests/support/MockChip.h"

namespace lmfg {
namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::FieldsAre;
using ::testing::InSequence;
using ::testing::Return;
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
    mService->registerVelaCallback({}, {}, {}, {}, {});
    mService->registerSoftVelaClient({}, {}, {});
    EXPECT_THAT(setMembers(), ElementsAre(Member::kConfigChanged));
}

TEST_F(FacadeTest, LastRegistrationOwnsSharedMembers) {
    std::string log;
    mService->registerVelaCallback(
            {}, [&](int64_t) { log += "vela "; }, {}, [&](int64_t, int) { log += "vela "; },
            [&](int64_t, int, int64_t) { return VelaContentSamples{.value1 = 1}; });
    mService->registerComposerCallback(
            {}, [&](int64_t) { log += "composer "; }, {},
            [](int64_t, int, int64_t) { return VelaContentSamples{.value1 = 2}; });
    events().refreshRequested(0);
    events().powerChanged(0, 1);
    EXPECT_EQ(log, "composer ");
    EXPECT_EQ(events().contentSampling(0, 1, 2).value1, 2);
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

TEST_F(FacadeTest, OperationsReachTheirOwnCounterpart) {
    const InSequence order;
    EXPECT_CALL(*mChip, initialize(1, 2, 3));
    EXPECT_CALL(*mChip, initSoftVela());
    EXPECT_CALL(*mChip, GetOsdState()).WillOnce(Return(31));
    EXPECT_CALL(*mChip, GetOsdOverFlow()).WillOnce(Return(32));
    EXPECT_CALL(*mChip, CommitLayerStack(5, true)).WillOnce(Return(33));
    EXPECT_CALL(*mChip, Present()).WillOnce(Return(true));
    EXPECT_CALL(*mChip, Present2nd()).WillOnce(Return(false));
    EXPECT_CALL(*mChip, PresentDisplay()).WillOnce(Return(34));
    EXPECT_CALL(*mChip, CreateLayer(1, 2));
    EXPECT_CALL(*mChip, DestroyLayer(3));
    EXPECT_CALL(*mChip, ChangeLayerType(4, 5));
    EXPECT_CALL(*mChip, SetLayerCompositionType(6, 7));
    EXPECT_CALL(*mChip, SetLayerTransform(8, 9));
    EXPECT_CALL(*mChip, SetLayerZOrder(10, 11));
    EXPECT_CALL(*mChip, SetLayerDisplayFrame(12, FieldsAre(1, 2, 3, 4)));
    EXPECT_CALL(*mChip, SetLayerSourceCrop(13, FieldsAre(5, 6, 7, 8)));
    EXPECT_CALL(*mChip, setLayerBuffer(14, 15, Field(&Chip::BufferInfo::value1, 16)));
    EXPECT_CALL(*mChip, setLayerProperty(17, 18));
    EXPECT_CALL(*mChip, SetLayerSetEmpty(19, true));
    EXPECT_CALL(*mChip, setActiveConfig(Field(&Chip::DisplayConfigVariableInfo::value3, 20)));
    EXPECT_CALL(*mChip, SetPowerMode(21));
    EXPECT_CALL(*mChip, SetColorModeWithRenderIntent(22, 23)).WillOnce(Return(35));
    EXPECT_CALL(*mChip, SetColorTransform(ElementsAre(1.5f))).WillOnce(Return(36));
    EXPECT_CALL(*mChip, configureVelaMaxcll(24)).WillOnce(Return(37));
    EXPECT_CALL(*mChip, handleDisplayEvent(25, 26, 27)).WillOnce(Return(38));
    EXPECT_CALL(*mChip, setOsdAutoRefresh(28)).WillOnce(Return(39));
    EXPECT_CALL(*mChip, SetClientTarget(29));
    EXPECT_CALL(*mChip, reportDualChannelStatus(30));
    EXPECT_CALL(*mChip, enableSecondaryDisplay(true));
    EXPECT_CALL(*mChip, SetPluggableDisplayConnected(true));
    EXPECT_CALL(*mChip, SetVirtualDisplayConnected(true));
    EXPECT_CALL(*mChip, setFrameBufferResolution(1, 2, 3));
    EXPECT_CALL(*mChip, setPanelName(4, "panel"));

    mService->initialize(1, 2, 3);
    mService->initSoftVela();
    EXPECT_EQ(mService->GetOsdState(), 31);
    EXPECT_EQ(mService->GetOsdOverFlow(), 32);
    EXPECT_EQ(mService->CommitLayerStack(5, true), 33);
    EXPECT_TRUE(mService->Present());
    EXPECT_FALSE(mService->Present2nd());
    EXPECT_EQ(mService->PresentDisplay(), 34);
    mService->CreateLayer(1, 2);
    mService->DestroyLayer(3);
    mService->ChangeLayerType(4, 5);
    mService->SetLayerCompositionType(6, 7);
    mService->SetLayerTransform(8, 9);
    mService->SetLayerZOrder(10, 11);
    mService->SetLayerDisplayFrame(12, {1, 2, 3, 4});
    mService->SetLayerSourceCrop(13, {5, 6, 7, 8});
    mService->setLayerBuffer(14, 15, {.value1 = 16});
    mService->setLayerProperty(17, 18);
    mService->SetLayerSetEmpty(19, true);
    mService->setActiveConfig({.value3 = 20});
    mService->SetPowerMode(21);
    EXPECT_EQ(mService->SetColorModeWithRenderIntent(22, 23), 35);
    EXPECT_EQ(mService->SetColorTransform({1.5f}), 36);
    EXPECT_EQ(mService->configureVelaMaxcll(24), 37);
    EXPECT_EQ(mService->handleDisplayEvent(25, 26, 27), 38);
    EXPECT_EQ(mService->setOsdAutoRefresh(28), 39);
    mService->SetClientTarget(29);
    mService->reportDualChannelStatus(30);
    mService->enableSecondaryDisplay(true);
    mService->SetPluggableDisplayConnected(true);
    mService->SetVirtualDisplayConnected(true);
    mService->setFrameBufferResolution(1, 2, 3);
    mService->setPanelName(4, "panel");
}

TEST_F(FacadeTest, ResultCallbacksReachTheCaller) {
    using Ints = Chip::hidl_vec<int>;
    using Bytes = Chip::hidl_vec<uint8_t>;
    EXPECT_CALL(*mChip, velaConfigureGet(1, ElementsAre(2), _))
            .WillOnce([](int, const Ints&, const Chip::ValuesResult& result) {
                result(3, {4});
                return Chip::Return<void>();
            });
    EXPECT_CALL(*mChip, velaConfigureSet(5, ElementsAre(6, 7))).WillOnce([](int, const Ints&) {
        return Chip::Return<int32_t>(-8);
    });
    EXPECT_CALL(*mChip, panelReadWrite(true, 1, 2, false, ElementsAre(3), 4, _))
            .WillOnce([](bool, uint8_t, uint8_t, bool, const Bytes&, uint8_t,
                         const Chip::BytesResult& result) {
                result(9, {10});
                return Chip::Return<void>();
            });
    EXPECT_CALL(*mChip, updateDisplayBrightness(11, 12, ElementsAre(13), _))
            .WillOnce([](uint64_t, int, const Ints&, const Chip::ValuesResult& result) {
                result(-14, {15});
            });

    std::vector<int> seen;
    const auto collect = [&](int32_t status, const auto& values) {
        seen.push_back(status);
        seen.insert(seen.end(), values.begin(), values.end());
    };
    mService->velaConfigureGet(1, {2}, collect);
    seen.push_back(mService->velaConfigureSet(5, {6, 7}));
    mService->panelReadWrite(true, 1, 2, false, {3}, 4, collect);
    mService->updateDisplayBrightness(11, 12, {13}, collect);
    EXPECT_THAT(seen, ElementsAre(3, 4, -8, 9, 10, -14, 15));
}

}  // namespace
}  // namespace lmfg
