#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"

namespace lmfg {
namespace {

/** Keeps the request that it is asked. */
struct AskedChip : SimulatedChip {
    Return<int32_t> velaConfigureSet(int, const hidl_vec<int>&) override {
        request = CausedBy::currentRequest();
        return -8;
    }

    std::shared_ptr<const ChipCall> request;
};

/** Notes what it sees. */
class NotingObserver : public ChipObserver {
  public:
    void began(const ChipCall& call) override { note("begin", call); }
    void ended(const ChipCall& call, const codec::Json& answer) override {
        note("end", call);
        mLog += answer.dump() + " ";
    }
    void settled(const ChipCall& call) override { note("settled", call); }

    std::string mLog;

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

    /** The members that are set, in the order in which they lie behind the object's pointer. */
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

    std::shared_ptr<AskedChip> mChip = std::make_shared<AskedChip>();
    std::shared_ptr<NotingObserver> mObserver = std::make_shared<NotingObserver>();
    VelaService* mService = nullptr;
};

/** Becomes whatever a function answers. */
struct Anything {
    template <typename T>
    operator T() const {  // NOLINT(google-explicit-constructor): std::function converts implicitly
        return T();
    }
};

TEST_F(FacadeTest, EachRegistrationWritesItsMembersInTheAgreedOrder) {
    const auto function = [](auto&&...) { return Anything(); };
    const auto vela = [this](const auto&... it) { mService->registerVelaCallback(it...); };
    const auto soft = [this](const auto&... it) { mService->registerSoftVelaClient(it...); };
    const auto composer = [this](const auto&... it) { mService->registerComposerCallback(it...); };
    constexpr std::nullptr_t kNone = nullptr;
    // The third function of the first is nobody's. Whoever registers last owns what is shared.
    const std::pair<std::function<void()>, const char*> registrations[] = {
            {[&] { vela(function, kNone, function, kNone, kNone); }, "1"},
            {[&] { vela(kNone, function, kNone, kNone, kNone); }, "3"},
            {[&] { vela(kNone, kNone, kNone, function, kNone); }, "4"},
            {[&] { vela(kNone, kNone, kNone, kNone, function); }, "5"},
            {[&] { soft(function, kNone, kNone); }, "56"},
            {[&] { soft(kNone, function, kNone); }, "57"},
            {[&] { soft(kNone, kNone, function); }, "58"},
            {[&] { composer(function, function, kNone, kNone); }, "238"},
            {[&] { composer(kNone, kNone, function, kNone); }, "48"},
            {[&] { composer(kNone, kNone, kNone, function); }, "58"},
    };
    for (const auto& [registers, members] : registrations) {
        registers();
        EXPECT_EQ(setMembers(), members);
    }
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
    EXPECT_EQ(mService->velaConfigureSet(1, {2}), -8);
    EXPECT_EQ(std::exchange(mObserver->mLog, {}),
              "begin velaConfigureSet[1,[2]] end velaConfigureSet[1,[2]] -8 ");
    EXPECT_EQ(CausedBy::currentRequest(), nullptr) << "it is over";
    {
        const CausedBy cause(std::exchange(mChip->request, nullptr));
        events().configChanged(1, 2, {3});
    }
    EXPECT_EQ(std::exchange(mObserver->mLog, {}),
              "begin configChanged[1,2,[3]]<velaConfigureSet "
              "end configChanged[1,2,[3]]<velaConfigureSet [9] "
              "settled configChanged[1,2,[3]]<velaConfigureSet settled velaConfigureSet[1,[2]] ");
    mService->velaConfigureGet(512, {}, [](int32_t, const auto&) {});
    EXPECT_EQ(mObserver->mLog,
              "begin velaConfigureGet[512,[]] end velaConfigureGet[512,[]] [0,[4,1024,64]] "
              "settled velaConfigureGet[512,[]] ");
}

}  // namespace
}  // namespace lmfg
