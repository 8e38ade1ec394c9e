#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vts/Clients.h"

namespace vts {
namespace {

/** Long enough that only a fault reaches it. */
constexpr std::chrono::seconds kPatience{15};

/** What a client has heard, in order. Any thread. */
class Heard {
  public:
    void put(std::string value) {
        const std::lock_guard lock(mLock);
        mValues.push_back(std::move(value));
        mArrived.notify_all();
    }

    /** The next one; none, after a long wait, when nothing comes. */
    std::optional<std::string> take() {
        std::unique_lock lock(mLock);
        if (!mArrived.wait_for(lock, kPatience, [this] { return !mValues.empty(); })) return {};
        std::string value = std::move(mValues.front());
        mValues.pop_front();
        return value;
    }

    [[nodiscard]] bool empty() {
        const std::lock_guard lock(mLock);
        return mValues.empty();
    }

  private:
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<std::string> mValues;
};

/** An operation of a callback, as a simulated chip raises it and tells what it was answered. */
struct Event {
    Kind kind;
    const char* batch;
    const char* heard;
    const char* answer = "";
    const char* ofRefusal = "";
    const char* ofDead = "";
    const char* ofNobody = "";
};

constexpr Kind kSoft = Kind::kSoftClient;
constexpr Kind kComposer = Kind::kCompositor;
const std::map<std::string, Event> kEvents = {
        {"IVelaCallback_onFeatureChanged", {Kind::kCallback, "feature 9 4 5", "9 { 4, 5 }"}},
        {"ISoftVelaClient_setConfig",
         {kSoft, "soft-set 4294967301 2 3", "4294967301 2 { 3 }", "-> 7", "-> -1", "-> -1",
          "-> -1"}},
        {"ISoftVelaClient_getConfig",
         {kSoft, "soft-get 4294967301 2 3", "4294967301 2 { 3 }", "-> 0 [7]", "-> -9 []", "-> 0 []",
          "-> -1 []"}},
        {"IVelaComposerCallback_onConfigChanged",
         {kComposer, "config 4294967301 2 3", "4294967301 2 { 3 }", "-> [7]", "-> []", "-> []"}},
        {"IVelaComposerCallback_onRefreshRequested",
         {kComposer, "refresh 4294967301", "4294967301"}},
        {"IVelaComposerCallback_onDisplayPowerChanged",
         {kComposer, "power 4294967301 2", "4294967301 2"}},
        {"IVelaComposerCallback_onContentSamplingRequested",
         {kComposer, "sample 4294967301 5 -4294967302", "4294967301 5 -4294967302",
          "-> 7 [1] [2,2] [3] [4]", "-> 0 [] [] [] []", "-> 0 [] [] [] []"}},
};

std::vector<std::string> events() {
    std::vector<std::string> names;
    for (const auto& [name, event] : kEvents)
        names.push_back(name);
    return names;
}

class EventsTest : public ServiceTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ServiceTest::SetUp());
        if (isAbsent()) GTEST_SKIP() << "the service library is absent";
        if (batch("wait") != "wait: done\n") GTEST_SKIP() << "the chip raises no events on request";
    }

    std::string batch(const std::string& text) {
        std::string reply;
        (void)vela().velaConfigureBatch(0, text, &reply);
        return reply;
    }
    /** Raises the event and waits; whether the chip was answered so. */
    void expectAnswer(const char* expected, const std::string& before) {
        const std::string reply = batch(before + "wait; last");
        ASSERT_NE(reply.find(expected), std::string::npos) << reply << "and not " << expected;
    }

    /** Registers a client that hears the event, calls back meanwhile, and answers so. */
    void enrollSelf(int64_t id = kId, ScopedAStatus (*answer)() = &ScopedAStatus::ok) {
        std::weak_ptr<IVelaComposerClient> client = std::get<1>(service);
        const Hear hear = [heard = heard, client, answer](const std::string& arguments) {
            if (const auto it = client.lock()) {
                EXPECT_EQ("ok 0", ask(*it, &IVelaComposerClient::getOsdStatus, 2));
            }
            heard->put(arguments);
            return answer();
        };
        ASSERT_EQ("ok", enroll(service, event.kind, id, hear));
    }
    /** Raises the event, which that client is to hear, once. */
    void expectHeard(const char* answer) {
        ASSERT_NO_FATAL_FAILURE(expectAnswer(answer, raise));
        ASSERT_EQ(heard->take(), event.heard);
        EXPECT_TRUE(heard->empty());
    }

    /** Returns when the service has noticed the deaths of all clients that are gone. */
    void awaitDeaths() {
        ClientProcess last(instance(), kSoft, kLowest);
        ASSERT_EQ("ok", last.hear());
        last.kill();
        ASSERT_EQ("ok", enroll(service, kSoft, kHighest, ignore));
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (batch("soft-get 0 0; wait; last").find("[7]") == std::string::npos)
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "a dead client is asked";
        while (!heard->empty())
            heard->take();
    }

    const Event& event = kEvents.at(subject());
    const std::string raise = std::string(event.batch) + "; ";
    // Shared with the clients, which the service may hold for longer.
    const std::shared_ptr<Heard> heard = std::make_shared<Heard>();
};

TEST_P(EventsTest, ReachAClient) {
    enrollSelf();
    expectHeard(event.answer);
}

TEST_P(EventsTest, ReachOnlyTheReplacementOfAClient) {
    enrollSelf(kId, [] { return ScopedAStatus::fromServiceSpecificError(-9); });
    enrollSelf();
    expectHeard(event.answer);
}

TEST_P(EventsTest, EndWhenNullReplacesAClient) {
    enrollSelf();
    ASSERT_EQ("ok", enroll(service, event.kind, kId, nullptr));
    // To a composer client null changes nothing.
    if (event.kind == kComposer) return expectHeard(event.answer);
    expectAnswer(event.ofNobody, raise);
    EXPECT_TRUE(heard->empty());
}

TEST_P(EventsTest, GoOnWhenAClientRefusesThem) {
    enrollSelf(kId, [] { return ScopedAStatus::fromServiceSpecificError(-9); });
    for (int i = 0; i < 2; ++i)
        expectHeard(event.ofRefusal);
}

TEST_P(EventsTest, GoOnWhenAClientStallsAndIsKilled) {
    const bool areMany = event.kind == Kind::kCallback;
    ClientProcess client(instance(), event.kind, kId);
    ASSERT_EQ("ok", client.hear());
    if (areMany) enrollSelf(kHighest);
    batch(raise);
    ASSERT_EQ(event.heard, client.hear());
    // It does not answer; nobody waits but the callback behind it.
    EXPECT_TRUE(heard->empty());
    EXPECT_EQ("ok", enroll(service, Kind::kCallback, kLowest, ignore));
    EXPECT_EQ("ok 0", ask(composer(), &IVelaComposerClient::getOsdStatus, 2));
    EXPECT_TRUE(client.kill()) << "it was waited for";
    expectAnswer(event.ofDead, "");
    if (areMany) {
        EXPECT_EQ(heard->take(), event.heard);
        EXPECT_EQ("ok", enroll(service, event.kind, kHighest, nullptr));
    }
    service = connect(instance());
    enrollSelf();
    expectHeard(event.answer);
}

TEST_P(EventsTest, OutliveAClientThatWasReplaced) {
    ClientProcess client(instance(), event.kind, kId);
    ASSERT_EQ("ok", client.hear());
    service = connect(instance());
    enrollSelf();
    client.kill();
    ASSERT_NO_FATAL_FAILURE(awaitDeaths());
    expectHeard(event.answer);
}

INSTANTIATE_TEST_SUITE_P(Conformance, EventsTest,
                         testing::Combine(testing::ValuesIn(instances()),
                                          testing::ValuesIn(events())),
                         EventsTest::name);

}  // namespace
}  // namespace vts
