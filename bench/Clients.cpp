// What many clients, processes of their own, cost: calls per second of several at once, how long
// one waits beside the others, and an event that goes to all of them. With the arguments `hold NAME
// COUNT` it is nothing but so many clients of the service of that name.

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <sched.h>
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

using bench::quantile;
using Children = std::vector<std::unique_ptr<Child>>;
using Client = std::shared_ptr<display::IVelaComposerClient>;

// Made by main().
const Children* gCallers = nullptr;
const Child* gStalled = nullptr;
const Child* gFlooding = nullptr;
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

/** What a turn was like. */
struct Turn {
    uint64_t calls = 0;
    double p50Us = 0;  // of single calls; 0 where they were not timed
    double p99Us = 0;
    double p999Us = 0;
};

template <typename Call>
Turn timedTurn(Call call) {
    std::vector<double> each;
    const uint64_t calls = callsInATurn([&] {
        const auto start = Clock::now();
        call();
        each.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    });
    return {calls, quantile(each, 0.5), quantile(each, 0.99), quantile(each, 0.999)};
}

Client composer() {
    Client client;
    check(bench::service(kName)->createComposerClient(&client).isOk(), "createComposerClient");
    return client;
}

void createLayer(const Client& client) {
    check(client->createLayer(0, 7).isOk(), "createLayer");
}

/** Calls for one turn whenever it is told to: the service, or a process that echoes as much. */
void callInTurns(Channel parent) {
    const Child partner(bench::serveEcho);
    parent.hear();
    const Client client = composer();
    parent.tell('r');
    std::vector<char> buffer(kEcho.request);
    for (;;) {
        const char what = parent.hear();
        Turn turn;
        if (what == 't') {
            turn = timedTurn([&] { createLayer(client); });
        } else if (what == 'e') {
            turn.calls = callsInATurn([&] { exchangeEcho(partner.channel(), kEcho, &buffer); });
        } else {
            turn.calls = callsInATurn([&] { createLayer(client); });
        }
        parent.send(&turn, sizeof(turn));
    }
}

/** From one word of the parent's to the next, makes one call after the other. */
void callUntilTold(Channel parent, void (*call)(const Client& client)) {
    parent.hear();
    const Client client = composer();
    parent.tell('r');
    for (;;) {
        parent.hear();
        parent.tell('g');
        char word = 0;
        while (recv(parent.socket(), &word, sizeof(word), MSG_DONTWAIT) <= 0)
            call(client);
        parent.tell('s');
    }
}

/** One way and without arguments, which the service refuses; too many are refused here. */
void flood(const Client& client) {
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    AIBinder* const binder = client->asBinder().get();
    check(AIBinder_prepareTransaction(binder, in.getR()) == STATUS_OK, "prepare");
    (void)AIBinder_transact(binder, FIRST_CALL_TRANSACTION, in.getR(), out.getR(), FLAG_ONEWAY);
}

Turn turnOf(size_t caller) {
    Turn turn;
    (*gCallers)[caller]->channel().receive(&turn, sizeof(turn));
    return turn;
}

double callsPerSecond(size_t count, char what) {
    for (size_t i = 0; i < count; ++i)
        (*gCallers)[i]->channel().tell(what);
    uint64_t calls = 0;
    for (size_t i = 0; i < count; ++i)
        calls += turnOf(i).calls;
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
    const double calls = quantile(measured, 0.5);
    const double echoes = quantile(floor, 0.5);
    state.counters["calls_per_second"] = calls;
    state.counters["floor_calls_per_second"] = echoes;
    state.counters["ratio"] = echoes / calls;
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

/** Single calls of one client, beside so many that call as fast as they can. */
void wait(benchmark::State& state, size_t others) {
    std::vector<double> p50;
    std::vector<double> p99;
    std::vector<double> p999;
    for ([[maybe_unused]] auto _ : state) {
        for (size_t i = 0; i <= others; ++i)
            (*gCallers)[i]->channel().tell(i == 0 ? 't' : 'g');
        const Turn turn = turnOf(0);
        for (size_t i = 1; i <= others; ++i)
            turnOf(i);
        p50.push_back(turn.p50Us);
        p99.push_back(turn.p99Us);
        p999.push_back(turn.p999Us);
        state.SetIterationTime(std::chrono::duration<double>(kTurn).count());
    }
    state.counters["ns"] = quantile(p50, 0.5) * 1000;
    state.counters["p99_us"] = quantile(p99, 0.5);
    state.counters["p999_us"] = quantile(p999, 0.5);
}

void waitBesideFlood(benchmark::State& state) {
    gFlooding->channel().ask('g');
    wait(state, 0);
    gFlooding->channel().ask('s');
}
BENCHMARK_CAPTURE(wait, alone, 0)->Name("wait/alone")->UseManualTime();
BENCHMARK_CAPTURE(wait, seven, kCallers - 1)->Name("wait/beside seven busy ones")->UseManualTime();
BENCHMARK(waitBesideFlood)->Name("wait/beside one that floods")->UseManualTime();

// --- an event to many clients ---

class Listener : public display::BnVelaCallback {
  public:
    ndk::ScopedAStatus onFeatureChanged(int32_t, const std::vector<int32_t>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

/**
 * Registers a callback under the identifier whenever it is told to, or under as many as there are
 * listeners; else it answers.
 */
void listen(Channel parent, const std::string& name, int64_t id) {
    // On one processor: how processes are spread over several would change what they take.
    bench::runOn(bench::processors()[0]);
    ABinderProcess_setThreadPoolMaxThreadCount(0);
    const auto listener = ndk::SharedRefBase::make<Listener>();
    for (;;) {
        const char what = parent.hear();
        if (what == 'e') {
            parent.tell('e');
            continue;
        }
        ABinderProcess_startThreadPool();
        const auto service = bench::service(name.c_str());
        for (int64_t i = id; i < (what == 'a' ? kListeners : id + 1); ++i)
            check(service->registerCallback(i, listener).isOk(), "registerCallback");
        parent.tell('r');
    }
}

/** For each client. Floor: an echo of one byte with each of the processes. */
void fanOut(benchmark::State& state, int64_t count, bool isOneProcess) {
    cpu_set_t before;
    check(sched_getaffinity(0, sizeof(before), &before) == 0, "sched_getaffinity");
    bench::runOn(bench::processors()[0]);
    const auto own = bench::service(kName);
    if (isOneProcess) gListeners->front()->channel().ask('a');
    for (int64_t id = 0; id < kListeners; ++id) {
        if (id >= count) {
            check(own->registerCallback(id, nullptr).isOk(), "registerCallback");
        } else if (!isOneProcess) {
            (*gListeners)[static_cast<size_t>(id)]->channel().ask('c');
        }
    }
    const lmfg::VelaServiceCallbacks library(*lmfg::VelaService::init());
    bench::interleave(
            state, [&] { library.featureChanged(1, {1}); },
            [&] {
                for (int64_t id = 0; id < count; ++id)
                    (*gListeners)[isOneProcess ? 0 : static_cast<size_t>(id)]->channel().ask('e');
            },
            bench::Report::kMedians, std::chrono::microseconds(400));
    for (const char* const time : {"ns", "floor_ns"})
        state.counters[time] = state.counters[time] / static_cast<double>(count);
    check(sched_setaffinity(0, sizeof(before), &before) == 0, "sched_setaffinity");
}
BENCHMARK_CAPTURE(fanOut, one, 1, false)->Name("fan-out/1")->UseManualTime();
BENCHMARK_CAPTURE(fanOut, ten, 10, false)->Name("fan-out/10")->UseManualTime();
BENCHMARK_CAPTURE(fanOut, few, 25, false)->Name("fan-out/25")->UseManualTime();
BENCHMARK_CAPTURE(fanOut, hundred, 100, false)->Name("fan-out/100")->UseManualTime();
BENCHMARK_CAPTURE(fanOut, same, 100, true)->Name("fan-out/100 of one process")->UseManualTime();
BENCHMARK_CAPTURE(fanOut, many, 400, false)->Name("fan-out/400")->UseManualTime();
BENCHMARK_CAPTURE(fanOut, thousand, 1000, false)->Name("fan-out/1000")->UseManualTime();

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

/**
 * Registers so many clients with the service of that name, says so, and waits to be told to end.
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
    const Child stalled([](Channel parent) { callUntilTold(parent, createLayer); });
    const Child flooding([](Channel parent) { callUntilTold(parent, flood); });
    const Children listeners = makeListeners(kName, kListeners);
    bench::startOwnService(kName);

    for (const auto& caller : callers)
        caller->channel().ask('g');
    stalled.channel().ask('g');
    flooding.channel().ask('g');
    gCallers = &callers;
    gStalled = &stalled;
    gFlooding = &flooding;
    gListeners = &listeners;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
