#include <functional>
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

    std::string mLog;
    std::string mSpoilt;
    ChipFault mFault;

  private:
    void note(const char* what, const ChipCall& call) {
        mLog += std::string(what) + " " + call.operation + call.arguments.dump() +
                (call.cause != nullptr ? std::string("<") + call.cause->operation : "") + " ";
    }
};

class FacadeTest : public ::testing::Test {
  protected:
    FacadeTest() {
        installChip(mChip, {mObserver});
        mService = VelaService::init();
    }
    ~FacadeTest() override { installChip(nullptr); }

    VelaServiceCallbacks events() const { return VelaServiceCallbacks(*mService); }

    /// The members that are set, in the order in which they lie behind the object's pointer.
    std::string setMembers() const {
        std::string set;
        const auto* member = reinterpret_cast<const std::function<void()>*>(
                reinterpret_cast<const char*>(mService) + sizeof(void*));
        for (int i = 0; i < 8; ++i, ++member) {
            EXPECT_EQ(events().isSet(VelaServiceCallbacks::Member{i}), *member != nullptr) << i;
            if (*member != nullptr) set += std::to_string(i + 1);
        }
        return set;
    }

    std::shared_ptr<StrictMock<MockChip>> mChip = std::make_shared<StrictMock<MockChip>>();
    std::shared_ptr<NotingObserver> mObserver = std::make_shared<NotingObserver>();
    VelaService* mService = nullptr;
};

/// Becomes whatever a function answers.
struct Anything {
    template <typename T>
    operator T() const {
        return T();
    }
};

TEST_F(FacadeTest, EachRegistrationWritesItsMembersInTheAgreedOrder) {
    const auto function = [](auto&&...) { return Anything(); };
    const auto vela = [this](const auto&... it) { mService->registerVelaCallback(it...); };
    const auto soft = [this](const auto&... it) { mService->registerSoftVelaClient(it...); };
    const auto composer = [this](const auto&... it) { mService->registerComposerCallback(it...); };
    constexpr std::nullptr_t kNone = nullptr;
    vela(function, kNone, function, kNone, kNone);
    EXPECT_EQ(setMembers(), "1") << "the third function is nobody's";
    vela(kNone, function, kNone, kNone, kNone);
    EXPECT_EQ(setMembers(), "3");
    vela(kNone, kNone, kNone, function, kNone);
    EXPECT_EQ(setMembers(), "4");
    vela(kNone, kNone, kNone, kNone, function);
    EXPECT_EQ(setMembers(), "5");
    soft(function, kNone, kNone);
    EXPECT_EQ(setMembers(), "56");
    soft(kNone, function, kNone);
    EXPECT_EQ(setMembers(), "57");
    soft(kNone, kNone, function);
    EXPECT_EQ(setMembers(), "58");
    // Whoever registers last owns the members that both share.
    composer(function, function, kNone, kNone);
    EXPECT_EQ(setMembers(), "238");
    composer(kNone, kNone, function, kNone);
    EXPECT_EQ(setMembers(), "48");
    composer(kNone, kNone, kNone, function);
    EXPECT_EQ(setMembers(), "58");

    EXPECT_EQ(VelaService::init(), mService);
    installChip(mChip);
    mService = VelaService::init();
    EXPECT_EQ(setMembers(), "") << "a new installation starts without functions";
    installChip(nullptr);
    EXPECT_EQ(VelaService::init(), nullptr);
}

TEST_F(FacadeTest, ObserversSeeRequestsAndTheEventsTheyCause) {
    mService->registerComposerCallback(
            [](int64_t, int, const auto&) { return std::vector<int>{9}; }, {}, {}, {});
    std::shared_ptr<const ChipCall> request;
    EXPECT_CALL(*mChip, velaConfigureSet).WillOnce([&](int, const Chip::hidl_vec<int>&) {
        request = CausedBy::currentRequest();
        return Chip::Return<int32_t>(-8);
    });
    EXPECT_EQ(mService->velaConfigureSet(1, {2}), -8);
    EXPECT_EQ(std::exchange(mObserver->mLog, {}),
              "begin velaConfigureSet[1,[2]] end velaConfigureSet[1,[2]] -8 ");
    {
        const CausedBy cause(std::exchange(request, nullptr));
        events().configChanged(1, 2, {3});
    }
    EXPECT_EQ(std::exchange(mObserver->mLog, {}),
              "begin configChanged[1,2,[3]]<velaConfigureSet "
              "end configChanged[1,2,[3]]<velaConfigureSet [9] "
              "settled configChanged[1,2,[3]]<velaConfigureSet settled velaConfigureSet[1,[2]] ");
}

TEST_F(FacadeTest, FaultsReplaceAnswers) {
    EXPECT_CALL(*mChip, velaConfigureGet)
            .Times(2)
            .WillRepeatedly([](int, const auto&, const Chip::ValuesResult& result) {
                result(0, {4});
                return Chip::Return<void>();
            });
    const auto get = [&](ChipFault fault) {
        mObserver->mSpoilt = "velaConfigureGet";
        mObserver->mFault = fault;
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
    mObserver->mFault = {.status = -7};
    mObserver->mSpoilt = "PresentDisplay";
    EXPECT_EQ(mService->PresentDisplay(), -7);
    mObserver->mSpoilt = "Present";
    EXPECT_FALSE(mService->Present());
}

}  // namespace
}  // namespace lmfg
