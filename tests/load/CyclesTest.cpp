#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/load/LoadTest.h"

namespace load_test {
namespace {

constexpr size_t kAtOnce = 4;
constexpr int kIds = 8;
// With as many at once, about as long as a client takes to start and to register.
constexpr int kLongestUs = 1500;

/** Makes a one-way call and registers all that can be, some of it over others', until killed. */
const harness::Role kNewcomer("newcomer", [](harness::Parent& parent) {
    const int64_t id = std::stoi(parent.arguments.at(0));
    Heard heard;
    const auto vela = process_test::findService();
    std::shared_ptr<display::IVelaComposerClient> composer;
    AParcel* in = nullptr;
    AParcel* out = nullptr;
    AIBinder* const binder = vela->asBinder().get();
    if (AIBinder_prepareTransaction(binder, &in) == STATUS_OK &&
        AIBinder_transact(binder, FIRST_CALL_TRANSACTION, &in, &out, FLAG_ONEWAY) == STATUS_OK &&
        vela->registerCallback(id, heard.callback<display::IVelaCallback>()).isOk() &&
        vela->registerSoftVelaClient(id, heard.callback<display::ISoftVelaClient>()).isOk() &&
        vela->createComposerClient(&composer).isOk() &&
        composer->registerCallback(heard.callback<display::IVelaComposerCallback>()).isOk()) {
        parent.say("registered");
    }
    parent.untilGone();
});

TEST_F(LoadTest, ClientsThatAreKilledAtAnyMomentLeaveNothing) {
    const auto given = static_cast<uint32_t>(GTEST_FLAG_GET(random_seed));
    const uint32_t seed = given != 0 ? given : std::random_device()() % 100'000;
    figure("seed", seed);
    std::mt19937 random(seed);
    const auto below = [&random](int limit) {
        return std::uniform_int_distribution(0, limit - 1)(random);
    };
    const int count = harness::countOr(400);
    int registered = 0;
    leaveNothing(count, [&](int cycles) {
        // Events of a kind whose functions a new composer client leaves alone.
        std::atomic<bool> isDone = false;
        int events = 0;
        mHeard.forget();
        std::thread raiser([&] {
            while (!isDone)
                batch("feature " + std::to_string(++events) + "; wait");
        });
        registered = 0;
        std::list<harness::Child> clients;
        const auto killOne = [&] {
            const auto client = std::next(clients.begin(), below(static_cast<int>(clients.size())));
            client->kill();
            registered += client->hear() == "registered" ? 1 : 0;
            clients.erase(client);
        };
        for (int i = 0; i < cycles; ++i) {
            clients.emplace_back("newcomer", std::vector{std::to_string(1 + below(kIds))});
            std::this_thread::sleep_for(std::chrono::microseconds(below(kLongestUs)));
            if (clients.size() == kAtOnce) killOne();
        }
        while (!clients.empty())
            killOne();
        isDone = true;
        raiser.join();
        EXPECT_EQ(mHeard.count(), events);
    });
    figure("cycles", count);
    figure("cycles_registered", registered);
}

}  // namespace
}  // namespace load_test
