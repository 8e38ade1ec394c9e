#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/load/Caller.h"
#include "tests/load/LoadTest.h"

namespace load_test {
namespace {

using process_test::findService;

constexpr int kClients = 10;
constexpr int kThreads = 10;
constexpr int kCallers = kClients * kThreads;
constexpr int kCallsPerEvent = 50;
constexpr int kRestarts = 5;
constexpr int kFirstId = 100;

std::vector<Caller> callersOf(const harness::Parent& parent) {
    std::vector<Caller> callers;
    for (int i = 0; i < kThreads; ++i)
        callers.emplace_back(std::stoi(parent.arguments.at(0)) * kThreads + i);
    return callers;
}

/** Makes as many calls as it is told, each time that it is; tells how many were answered well. */
const harness::Role kCaller("callers", [](harness::Parent& parent) {
    Heard heard;
    const auto vela = findService();
    const int id = kFirstId + std::stoi(parent.arguments.at(0));
    const int calls = std::stoi(parent.arguments.at(1));
    bool isReady = vela->registerCallback(id, heard.callback<display::IVelaCallback>()).isOk();
    std::vector<Caller> callers = callersOf(parent);
    for (Caller& caller : callers)
        isReady &= caller.connect(vela);
    parent.say(isReady ? "ready" : "failed");
    while (parent.hear() == "go") {
        std::atomic<int> answers = 0;
        std::vector<std::thread> threads;
        for (Caller& caller : callers) {
            threads.emplace_back([&answers, &caller, calls] {
                for (int i = 1; i <= calls; ++i) {
                    const bool raises = i % kCallsPerEvent == 0;
                    const Caller::Answer answer = raises ? caller.raise() : caller.call();
                    if (answer == Caller::Answer::kRight) ++answers;
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        parent.say(std::to_string(answers));
    }
    parent.say(std::to_string(heard.count()));
    parent.untilGone();
});

/** Calls until it is told to end, whatever becomes of the host; tells of each return. */
const harness::Role kSurvivor("survivors", [](harness::Parent& parent) {
    std::vector<Caller> callers = callersOf(parent);
    std::atomic<bool> isEnding = false;
    std::atomic<int> calls = 0;
    std::atomic<int> answers = 0;
    std::vector<std::thread> threads;
    for (Caller& caller : callers) {
        threads.emplace_back([&] {
            for (bool isConnected = false; !isEnding;) {
                if (!isConnected) {
                    if (!caller.connect(findService())) continue;
                    parent.say("connected");
                }
                const Caller::Answer answer = caller.call();
                isConnected = answer != Caller::Answer::kServiceGone;
                if (isConnected) ++calls;
                if (answer == Caller::Answer::kRight) ++answers;
            }
        });
    }
    parent.hear();
    isEnding = true;
    for (std::thread& thread : threads)
        thread.join();
    parent.say(std::to_string(calls));
    parent.say(std::to_string(answers));
    parent.untilGone();
});

TEST_F(LoadTest, EachCallOfManyClientsIsAnsweredOnceAndEachEventHeardOnce) {
    const int count = harness::countOr(20'000);
    int answered = 0;
    leaveNothing(count, [this, &answered](int calls) {
        // In rounds, for none of which anybody loses patience.
        const int each = std::min(calls / kCallers, 100);
        const int rounds = calls / kCallers / each;
        const int events = rounds * (each / kCallsPerEvent) * kCallers;
        answered = 0;
        std::vector<harness::Child> clients;
        for (int i = 0; i < kClients; ++i)
            clients.emplace_back("callers", std::vector{std::to_string(i), std::to_string(each)});
        for (harness::Child& client : clients)
            ASSERT_EQ(client.hear(), "ready");
        listen();
        for (int round = 0; round < rounds; ++round) {
            for (harness::Child& client : clients)
                client.say("go");
            for (harness::Child& client : clients)
                answered += std::stoi(client.hear());
        }
        EXPECT_EQ(answered, rounds * each * kCallers);
        EXPECT_TRUE(harness::eventually([&] { return mHeard.count() == events * kEventKinds; }))
                << mHeard.count() << " of " << events * kEventKinds << " events were heard";
        for (harness::Child& client : clients) {
            client.say("end");
            EXPECT_EQ(client.hear(), std::to_string(events + 1)) << "that of listen() included";
        }
        clients.clear();
        handBuffers();
    });
    figure("calls", count);
    figure("answers", answered);
}

TEST_F(LoadTest, ClientsFindAHostThatIsRestartedUnderLoad) {
    std::vector<harness::Child> clients;
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back("survivors", std::vector{std::to_string(i)});
    const auto awaitClients = [&clients] {
        for (harness::Child& client : clients) {
            for (int i = 0; i < kThreads; ++i)
                ASSERT_EQ(client.hear(), "connected");
        }
    };
    awaitClients();
    for (int i = 0; i < kRestarts; ++i) {
        killHost();
        startHost();
        awaitClients();
    }
    int calls = 0;
    int answers = 0;
    for (harness::Child& client : clients) {
        client.say("end");
        calls += std::stoi(client.hear());
        answers += std::stoi(client.hear());
    }
    EXPECT_EQ(answers, calls);
    clients.clear();
    listen();
    startThreads();
    settle();
    figure("restarts", kRestarts);
    figure("calls", calls);
    figure("answers", answers);
}

}  // namespace
}  // namespace load_test
