#include "tests/service/ServiceTest.h"
#include "tests/support/PrivateMember.h"

namespace vela::test {

using aidl::vendor::lumenforge::hardware::display::VelaDefault;

struct LogMask {
    using Type = uint32_t VelaDefault::*;
    friend Type privateMember(LogMask);
};
template struct Open<LogMask, &VelaDefault::mLogMask>;

}  // namespace vela::test

namespace aidl::vendor::lumenforge::hardware::display {
namespace {

using ndk::ScopedAStatus;
using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::debugLine;

ScopedAStatus dead() {
    return ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

ScopedAStatus failed() {
    return ScopedAStatus::fromServiceSpecificError(-12);
}

class EventsTest : public ServiceTest {
  protected:
    std::shared_ptr<vts::SoftClient> addSoft(int64_t id, const vts::Hear& hear) {
        auto client = make<vts::SoftClient>(hear);
        EXPECT_EQ("ok", told(mService->registerSoftVelaClient(id, client)));
        return client;
    }
    std::shared_ptr<vts::Callback> add(int64_t id, const vts::Hear& hear) {
        auto client = make<vts::Callback>(hear);
        EXPECT_EQ("ok", told(mService->registerCallback(id, client)));
        return client;
    }
    /** What the library is told by getConfig: the status, then the values. */
    static std::string softGet(int64_t id, int config, const Values& values) {
        int status = 99;
        const Values answer = library().softGetConfig(id, config, values, status);
        return std::to_string(status) + ' ' + testing::PrintToString(answer);
    }
};

TEST_F(EventsTest, FeatureChangesReachEveryCallbackInTheOrderOfIdentifiers) {
    // Neither a dead callback nor one that fails keeps the others waiting, or is removed.
    add(5, hear("5"));
    add(1, hear("1", dead));
    add(INT64_MAX, hear("highest"));
    add(3, hear("3", failed));
    add(-2, hear("-2"));
    for (int i = 0; i < 2; ++i) {
        library().featureChanged(-7, {1, INT32_MIN});
        const std::string what = "(-7 { 1, -2147483648 })";
        EXPECT_EQ(heard(), "-2" + what + "1" + what + "3" + what + "5" + what + "highest" + what);
    }
}

TEST_F(EventsTest, ClientsMayRegisterFromInsideAnEvent) {
    add(1, hear("1", [this] { return mService->registerCallback(2, nullptr); }));
    // It was in the list already when the event came.
    add(2, hear("2"));
    library().featureChanged(0, {});
    EXPECT_EQ(heard(), "1(0 {})2(0 {})");
}

TEST_F(EventsTest, TheSoftClientWithTheLowestIdentifierServesEveryIdentifier) {
    const struct {
        ScopedAStatus (*answer)();
        const char* got;
    } kCases[] = {{ScopedAStatus::ok, "0 { 33 }"}, {failed, "-12 { 33 }"}, {dead, "0 { 33 }"}};
    Values out = {1, 2};
    EXPECT_EQ(mService->onSoftVelaGetConfig(1, 2, {3}, out), -1) << "there is none";
    EXPECT_THAT(out, ElementsAre(1, 2));
    addSoft(7, hear("high"));
    for (const auto& [answer, got] : kCases) {
        addSoft(2, hear("low", answer))->answer = 33;
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(library().softSetConfig(0x1'0000'0007, -4, {1, 2}), 33);
            EXPECT_EQ(softGet(0x1'0000'0007, -4, {3}), got);
            EXPECT_EQ(heard(), "low(4294967303 -4 { 1, 2 })low(4294967303 -4 { 3 })");
        }
    }
}

TEST_F(EventsTest, TraceLinesAreWrittenAroundTheCallUnderTheirBitOnly) {
    vela::test::LogCapture log;
    std::vector<vela::test::LogLine> before;
    const auto takeLines = [&](const std::string&) {
        before = log.take();
        return ScopedAStatus::ok();
    };
    const auto callback = add(1, takeLines);
    const auto client = addSoft(1, takeLines);
    log.take();
    const auto expectLines = [&](auto raise, const void* it, const std::string& what) {
        (*mService).*privateMember(vela::test::LogMask()) = 0x400;
        raise();
        EXPECT_THAT(before, IsEmpty());
        EXPECT_THAT(log.take(), IsEmpty());
        (*mService).*privateMember(vela::test::LogMask()) = 1;
        raise();
        EXPECT_THAT(before, ElementsAre(debugLine("[%p]%s", it, what.c_str())));
        EXPECT_THAT(log.take(), ElementsAre(debugLine("[%p]%s - end", it, what.c_str())));
    };
    const void* const soft = static_cast<const ISoftVelaClient*>(client.get());
    expectLines([] { library().featureChanged(0, {}); },
                static_cast<const IVelaCallback*>(callback.get()), "onFeatureChanged");
    expectLines([] { (void)library().softSetConfig(0, 0, {}); }, soft, "setConfig");
    expectLines([] { (void)softGet(0, 0, {}); }, soft, "getConfig");
    // Registrations and deaths have another bit.
    addSoft(1, vts::ignore);
    add(1, vts::ignore);
    mService->handleAidlDeath(1, 1);
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display
