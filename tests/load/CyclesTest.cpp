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

constexpr int kIdentifiers = 8;
constexpr size_t kAtOnce = 4;
// With as many at once, about as long as a client takes to start and to register.
constexpr int kLongestUs = 1500;

/** Makes a one-way call and registers all that can be, some of it over others', until killed. */
const harness::Role kNewcomer("newcomer", [](harness::Parent& parent) {
    const int64_t id = std::stoi(parent.arguments.at(0));
    Heard heard;
    const auto vela = findService();
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
    const int count = harness::countOr(400 / kSlowness);
    int registered = 0;
    leaveNothing(count, [&](int cycles) {
        registered = 0;
        mHeard.forget();
        std::list<harness::Child> clients;
        for (int i = 0; i < cycles || !clients.empty(); ++i) {
            if (i < cycles)
                clients.emplace_back("newcomer",
                                     std::vector{std::to_string(below(kIdentifiers) + 1)});
            // An event of a kind whose functions a new composer client leaves alone.
            batch("feature " + std::to_string(i));
            std::this_thread::sleep_for(std::chrono::microseconds(below(kLongestUs)));
            if (clients.size() < kAtOnce && i < cycles) continue;
            const auto client = std::next(clients.begin(), below(static_cast<int>(clients.size())));
            client->kill();
            registered += client->hear() == "registered" ? 1 : 0;
            clients.erase(client);
        }
        // What is registered after its client's death deliberately stays until it is replaced.
        for (int id = 1; id <= kIdentifiers; ++id) {
            harness::Child last("newcomer", std::vector{std::to_string(id)});
            EXPECT_EQ(last.hear(), "registered");
        }
        batch("wait");
        EXPECT_EQ(mHeard.count(), cycles + static_cast<int>(kAtOnce) - 1);
    });
    figure("cycles", count);
    figure("cycles_registered", registered);
}

}  // namespace
}  // namespace load_test
