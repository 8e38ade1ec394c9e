// What many clients, processes of their own, cost: calls per second of several at once, with one of
// them stalled, and an event that goes to all of them. With the arguments `hold NAME COUNT` it is
// nothing but so many clients of the service of that name.

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>

#include "bench/BenchService.h"
#include "bench/Interleaved.h"
#include "bench/Processes.h"
#include "host/chip/VelaServiceCallbacks.h"

namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
using bench::Channel;
using bench::check;
using bench::Child;
using bench::Clock;

constexpr char kName[] = "bench.own";
constexpr int kCallers = 8;
constexpr int64_t kListeners = 1000;
constexpr std::chrono::milliseconds kTurn{100};
// What createLayer takes: its token and two values there, a status back.
constexpr bench::EchoSizes kEcho{.request = 152, .reply = 4};

using Children = std::vector<std::unique_ptr<Child>>;

// --- calls of several clients at once ---

/** How many calls fit a turn. */
template <typename Call>
uint64_t callsInATurn(Call call) {
    uint64_t calls = 0;
    for (const auto end = Clock::now() + kTurn; Clock::now() < end; ++calls)
        call();
    return calls;
}

/** Calls for one turn whenever it is told to: the service, or a process that echoes as much. */
void callInTurns(Channel parent) {
    const Child partner(bench::serveEcho);
    parent.hear();
    std::shared_ptr<display::IVelaComposerClient> client;
    check(bench::service(kName)->createComposerClient(&client).isOk(), "createComposerClient");
    parent.tell('r');
    std::vector<char> buffer(kEcho.request);
    for (;;) {
        const uint64_t calls =
                parent.hear() == 'e'
                        ? callsInATurn([&] { exchangeEcho(partner.channel(), kEcho, &buffer); })
                        : callsInATurn(
                                  [&] { check(client->createLayer(0, 7).isOk(), "createLayer"); });
        parent.send(&calls, sizeof(calls));
    }
}

/** From one word of the parent's to the next, makes one call after the other. */
void callUntilTold(Channel parent) {
    parent.hear();
    std::shared_ptr<display::IVelaComposerClient> client;
    check(bench::service(kName)->createComposerClient(&client).isOk(), "createComposerClient");
    parent.tell('r');
    for (;;) {
        parent.hear();
        parent.tell('g');
        char word = 0;
        while (recv(parent.socket(), &word, sizeof(word), MSG_DONTWAIT) <= 0)
            check(client->createLayer(0, 7).isOk(), "createLayer");
        parent.tell('s');
    }
}

double callsPerSecond(const Children& callers, int count, char what) {
    for (int i = 0; i < count; ++i)
        callers[static_cast<size_t>(i)]->channel().tell(what);
    uint64_t calls = 0;
    for (int i = 0; i < count; ++i) {
        uint64_t made = 0;
        callers[static_cast<size_t>(i)]->channel().receive(&made, sizeof(made));
        calls += made;
    }
    return static_cast<double>(calls) / std::chrono::duration<double>(kTurn).count();
}

/** Floor: as many pairs of processes that echo as many bytes. */
void throughput(benchmark::State& state, const Children& callers, int count) {
    std::vector<double> measured;
    std::vector<double> floor;
    for ([[maybe_unused]] auto _ : state) {
        measured.push_back(callsPerSecond(callers, count, 'g'));
        floor.push_back(callsPerSecond(callers, count, 'e'));
        state.SetIterationTime(2 * std::chrono::duration<double>(kTurn).count());
    }
    state.counters["calls_per_second"] = bench::median(measured);
    state.counters["floor_calls_per_second"] = bench::median(floor);
}

/** One client's calls while another one, stopped in the middle of its own, reads nothing. */
void throughputBesideStalled(benchmark::State& state, const Children& callers,
                             const Child& stalled) {
    stalled.channel().ask('g');
    check(kill(stalled.pid(), SIGSTOP) == 0, "kill");
    throughput(state, callers, 1);
    check(kill(stalled.pid(), SIGCONT) == 0, "kill");
    stalled.channel().ask('s');
}

// --- an event to many clients ---

class Listener : public display::BnVelaCallback {
  public:
    ndk::ScopedAStatus onFeatureChanged(int32_t, const std::vector<int32_t>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

/** Registers a callback under the identifier whenever it is told to; else it answers. */
void listen(Channel parent, const std::string& name, int64_t id) {
    ABinderProcess_setThreadPoolMaxThreadCount(0);
    const auto listener = ndk::SharedRefBase::make<Listener>();
    for (;;) {
        if (parent.hear() == 'e') {
            parent.tell('e');
            continue;
        }
        ABinderProcess_startThreadPool();
        check(bench::service(name.c_str())->registerCallback(id, listener).isOk(),
              "registerCallback");
        parent.tell('r');
    }
}

/** `per_client_ns`: of an event; `floor_ns`: of an echo of one byte with as many processes. */
void fanOut(benchmark::State& state, const Children& listeners, int64_t count) {
    const auto own = bench::service(kName);
    for (int64_t id = 0; id < kListeners; ++id) {
        if (id < count) {
            listeners[static_cast<size_t>(id)]->channel().ask('c');
        } else {
            check(own->registerCallback(id, nullptr).isOk(), "registerCallback");
        }
    }
    const lmfg::VelaServiceCallbacks library(*lmfg::VelaService::init());
    bench::interleave(
            state, [&] { library.featureChanged(1, {1}); },
            [&] {
                for (int64_t id = 0; id < count; ++id)
                    listeners[static_cast<size_t>(id)]->channel().ask('e');
            },
            bench::Report::kMedians, std::chrono::microseconds(400));
    state.counters["ns"] = state.counters["ns"] / static_cast<double>(count);
    state.counters["floor_ns"] = state.counters["floor_ns"] / static_cast<double>(count);
}

void allowManyDescriptors() {
    rlimit limit{};
    check(getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit");
    limit.rlim_cur = limit.rlim_max;
    check(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
}

Children makeListeners(const std::string& name, int64_t count) {
    Children listeners;
    for (int64_t id = 0; id < count; ++id) {
        listeners.push_back(
                std::make_unique<Child>([&name, id](Channel parent) { listen(parent, name, id); }));
    }
    return listeners;
}

/** Registers so many clients with the service of that name, says so, and waits to be told to end.
 */
void holdClients(const std::string& name, int64_t count) {
    const Children listeners = makeListeners(name, count);
    for (const auto& listener : listeners)
        listener->channel().ask('c');
    std::puts("registered");
    std::fflush(stdout);
    std::getchar();
}

template <typename Body>
void add(const std::string& name, Body body) {
    benchmark::RegisterBenchmark(name.c_str(), body)->UseManualTime();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    allowManyDescriptors();
    if (argc == 4 && std::string(argv[1]) == "hold") {
        holdClients(argv[2], std::atoll(argv[3]));
        return 0;
    }
    const bench::RuntimeFolder folder;
    Children callers;
    for (int i = 0; i < kCallers; ++i)
        callers.push_back(std::make_unique<Child>(callInTurns));
    const Child stalled(callUntilTold);
    const Children listeners = makeListeners(kName, kListeners);
    bench::startOwnService(kName);

    for (const auto& caller : callers)
        caller->channel().ask('g');
    stalled.channel().ask('g');
    for (const int count : {1, 2, 4, 8}) {
        add("throughput/" + std::to_string(count),
            [&, count](benchmark::State& state) { throughput(state, callers, count); });
    }
    add("throughput/1 beside a stalled one",
        [&](benchmark::State& state) { throughputBesideStalled(state, callers, stalled); });
    for (const int64_t count : {1, 10, 100, 1000}) {
        add("fan-out/" + std::to_string(count),
            [&, count](benchmark::State& state) { fanOut(state, listeners, count); });
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
