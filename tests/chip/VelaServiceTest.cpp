#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "host/chip/ChipObserver.h"
#include "tests/chip/SimulatedChipFixture.h"

namespace lmfg {
namespace {

class VelaServiceTest : public SimulatedChipTest {
  protected:
    /** The members that are set, in the order in which they lie behind the object's pointer. */
    std::string setMembers() const {
        std::string set;
        const auto* member = reinterpret_cast<const std::function<void()>*>(
                reinterpret_cast<const char*>(mService) + sizeof(void*));
        for (int i = 0; i < 8; ++i, ++member) {
            const VelaServiceCallbacks::Member number{i};
            EXPECT_EQ(VelaServiceCallbacks(*mService).isSet(number), *member != nullptr) << i;
            if (*member != nullptr) set += std::to_string(i + 1);
        }
        return set;
    }
};

/** Becomes whatever a function answers. */
struct Anything {
    template <typename T>
    operator T() const {  // NOLINT(google-explicit-constructor): std::function converts implicitly
        return T();
    }
};

TEST_F(VelaServiceTest, EachRegistrationWritesItsMembersInTheAgreedOrder) {
    const auto function = [](auto&&...) { return Anything(); };
    const auto vela = [this](const auto&... it) { mService->registerVelaCallback(it...); };
    const auto soft = [this](const auto&... it) { mService->registerSoftVelaClient(it...); };
    const auto composer = [this](const auto&... it) { mService->registerComposerCallback(it...); };
    constexpr std::nullptr_t kNone = nullptr;
    // registerVelaCallback's third function is nobody's. Whoever registers last owns what is
    // shared.
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
    installChip(std::make_shared<SimulatedChip>());
    mService = VelaService::init();
    EXPECT_EQ(setMembers(), "") << "a new installation starts without functions";
    installChip(nullptr);
    EXPECT_EQ(VelaService::init(), nullptr);
}

struct NotingObserver : ChipObserver {
    std::optional<ChipFault> fault(const ChipCall&) override { return next; }
    void ended(const ChipCall& call, const codec::Json& answer) override {
        noted += call.operation + call.arguments.dump() + answer.dump() + ' ';
    }

    std::optional<ChipFault> next;
    std::string noted;
};

TEST_F(VelaServiceTest, ObserversSeeAnswersAndTheRefusalsOfTheirFaults) {
    const auto observer = std::make_shared<NotingObserver>();
    hearRefusals([&](const std::string& why) { observer->noted += why + ' '; });
    installChip(std::make_shared<SimulatedChip>(), {observer});
    mService = VelaService::init();
    get(512);
    for (const int status : {-5, INT32_MIN, 5}) {
        observer->next = ChipFault{.status = status};
        EXPECT_EQ(set(1, {2}), status);
    }
    EXPECT_EQ(observer->noted,
              "velaConfigureGet[512,[]][0,[4,1024,64]] "
              "EIO: by a fault velaConfigureSet[1,[2]]-5 "
              "2147483648: by a fault velaConfigureSet[1,[2]]-2147483648 "
              "velaConfigureSet[1,[2]]5 ");
    EXPECT_EQ(CausedBy::currentRequest(), nullptr) << "all are over";
    hearRefusals(nullptr);
}

}  // namespace
}  // namespace lmfg
