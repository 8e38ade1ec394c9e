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

// Made by main().
const Children* gCallers = nullptr;
const Child* gStalled = nullptr;
const Children* gListeners = nullptr;

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

double callsPerSecond(size_t count, char what) {
    for (size_t i = 0; i < count; ++i)
        (*gCallers)[i]->channel().tell(what);
    uint64_t calls = 0;
    for (size_t i = 0; i < count; ++i) {
        uint64_t made = 0;
        (*gCallers)[i]->channel().receive(&made, sizeof(made));
        calls += made;
    }
    return static_cast<double>(calls) / std::chrono::duration<double>(kTurn).count();
}

/** Floor: as many pairs of processes that echo as many bytes. */
void callAtOnce(benchmark::State& state, size_t count) {
    std::vector<double> measured;
    std::vector<double> floor;
    for ([[maybe_unused]] auto _ : state) {
        measured.push_back(callsPerSecond(count, 'g'));
        floor.push_back(callsPerSecond(count, 'e'));
        state.SetIterationTime(2 * std::chrono::duration<double>(kTurn).count());
    }
    state.counters["calls_per_second"] = bench::median(measured);
    state.counters["floor_calls_per_second"] = bench::median(floor);
}

void throughput(benchmark::State& state) {
    callAtOnce(state, static_cast<size_t>(state.range(0)));
}
BENCHMARK(throughput)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->UseManualTime();

/** One client's calls while another one, stopped in the middle of its own, reads nothing. */
void throughputBesideStalled(benchmark::State& state) {
    gStalled->channel().ask('g');
    check(kill(gStalled->pid(), SIGSTOP) == 0, "kill");
    callAtOnce(state, 1);
    check(kill(gStalled->pid(), SIGCONT) == 0, "kill");
    gStalled->channel().ask('s');
}
BENCHMARK(throughputBesideStalled)->Name("throughput/1 beside a stalled one")->UseManualTime();

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

/** For each client. Floor: an echo of one byte with each of the processes. */
void fanOut(benchmark::State& state) {
    const int64_t count = state.range(0);
    const auto own = bench::service(kName);
    for (int64_t id = 0; id < kListeners; ++id) {
        if (id < count) {
            (*gListeners)[static_cast<size_t>(id)]->channel().ask('c');
        } else {
            check(own->registerCallback(id, nullptr).isOk(), "registerCallback");
        }
    }
    const lmfg::VelaServiceCallbacks library(*lmfg::VelaService::init());
    bench::interleave(
            state, [&] { library.featureChanged(1, {1}); },
            [&] {
                for (int64_t id = 0; id < count; ++id)
                    (*gListeners)[static_cast<size_t>(id)]->channel().ask('e');
            },
            bench::Report::kMedians, std::chrono::microseconds(400));
    for (const char* const time : {"ns", "floor_ns"})
        state.counters[time] = state.counters[time] / static_cast<double>(count);
}
BENCHMARK(fanOut)->Name("fan-out")->Arg(1)->Arg(10)->Arg(100)->Arg(1000)->UseManualTime();

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
    gCallers = &callers;
    gStalled = &stalled;
    gListeners = &listeners;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
