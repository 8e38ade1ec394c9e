// What a call of the service in another process costs beside an echo of the same bytes over a Unix
// socket, on one processor and across two; an event with its answer, which goes the other way; and
// what other channels of this machine take.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVela.h>

#include "bench/BenchService.h"
#include "bench/Interleaved.h"
#include "bench/Processes.h"
#include "bench/Records.h"

namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
using bench::check;
using Values = std::vector<int32_t>;

constexpr char kOwnName[] = "bench.own";

class Compositor : public display::BnVelaComposerCallback {
  public:
    ndk::ScopedAStatus onConfigChanged(int64_t, int32_t, const Values& values,
                                       Values* out) override {
        *out = values;
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onRefreshRequested(int64_t) override { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus onDisplayPowerChanged(int64_t, int32_t) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onContentSamplingRequested(int64_t, int32_t, int64_t,
                                                  display::ContentSamples*) override {
        return ndk::ScopedAStatus::ok();
    }
};

/** A service of its own under the name, and when it is asked to, a compositor of the parent's. */
void serve(const bench::Channel& parent, const std::string& name) {
    parent.hear();  // that there is a service manager
    bench::publish(name.c_str());
    ABinderProcess_startThreadPool();
    parent.tell('s');
    std::shared_ptr<display::IVelaComposerClient> client;
    for (;;) {
        parent.hear();
        // Of composer clients, the one made last hears of events.
        check(bench::service(kOwnName)->createComposerClient(&client).isOk(), "client");
        check(client->registerCallback(ndk::SharedRefBase::make<Compositor>()).isOk(), "callback");
        parent.tell('c');
    }
}

/** A pipe each way. */
class Pipes {
  public:
    Pipes() { check(pipe(mThere) == 0 && pipe(mBack) == 0, "pipe"); }

    void serve() {
        for (char byte = 0; read(mThere[0], &byte, 1) == 1 && write(mBack[1], &byte, 1) == 1;) {
        }
    }
    void exchange() {
        char byte = 0;
        check(write(mThere[1], &byte, 1) == 1 && read(mBack[0], &byte, 1) == 1, "pipe");
    }

  private:
    int mThere[2];
    int mBack[2];
};

/** A word of shared memory that says whose turn it is, and a futex to wait at it. */
class SharedWord {
  public:
    SharedWord()
        : mTurn(new (mmap(nullptr, sizeof(Turn), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                          -1, 0)) Turn(kAsker)) {}

    void serve() {
        for (;;) {
            await(kServer);
            give(kAsker);
        }
    }
    void exchange() {
        give(kServer);
        await(kAsker);
    }

  private:
    using Turn = std::atomic<uint32_t>;
    static constexpr uint32_t kAsker = 0;
    static constexpr uint32_t kServer = 1;

    void give(uint32_t whose) {
        mTurn->store(whose);
        syscall(SYS_futex, mTurn, FUTEX_WAKE, 1, nullptr, nullptr, 0);
    }
    void await(uint32_t whose) {
        while (mTurn->load() != whose)
            syscall(SYS_futex, mTurn, FUTEX_WAIT, 1 - whose, nullptr, nullptr, 0);
    }

    Turn* mTurn;
};

/** Serves a channel on that processor, in a process of its own. */
template <typename T>
class Served {
  public:
    explicit Served(int processor)
        : mChild([this, processor](bench::Channel /*parent*/) {
              bench::runOn(processor);
              mChannel.serve();
          }) {}
    void exchange() const { mChannel.exchange(); }

  private:
    mutable T mChannel;
    const bench::Child mChild;
};

/** The processes on one processor. */
struct Side {
    Side(int processor, const std::string& name)
        : serviceName(name),
          echo([processor](bench::Channel parent) {
              bench::runOn(processor);
              bench::serveEcho(parent);
          }),
          pipes(processor),
          memory(processor),
          server([&](bench::Channel parent) {
              bench::runOn(processor);
              serve(parent, name);
          }) {}

    const std::string serviceName;
    const bench::Child echo;
    const Served<Pipes> pipes;
    const Served<SharedWord> memory;
    const bench::Child server;
    std::shared_ptr<display::IVela> vela;
    std::shared_ptr<display::IVelaComposerClient> client;

    void connect() {
        server.channel().ask('g');
        vela = bench::service(serviceName.c_str());
        check(vela->createComposerClient(&client).isOk(), "createComposerClient");
    }
};

/**
 * How many bytes a request takes, and a reply: what is written behind the token, and the status.
 */
template <typename Write>
uint32_t requestSize(const std::shared_ptr<ndk::ICInterface>& target, Write write) {
    ndk::ScopedAParcel parcel;
    const ndk::SpAIBinder binder = target->asBinder();
    check(AIBinder_prepareTransaction(binder.get(), parcel.getR()) == STATUS_OK, "prepare");
    write(parcel.get());
    return static_cast<uint32_t>(AParcel_getDataSize(parcel.get()));
}

/** What the two sides of a call have to do with its values: write them, read them into new ones. */
template <typename T>
void throughParcel(const T& values) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    ndk::AParcel_writeData(parcel.get(), values);
    AParcel_setDataPosition(parcel.get(), 0);
    T out;
    ndk::AParcel_readData(parcel.get(), &out);
    benchmark::DoNotOptimize(&out);
}

/** Floor: an echo of the same bytes, and parcels(). */
template <typename Call, typename Parcels = void (*)()>
void measure(
        benchmark::State& state, const Side& side, bench::EchoSizes sizes, Call call,
        Parcels parcels = [] {}) {
    std::vector<char> buffer(std::max(sizes.request, sizes.reply));
    bench::interleave(
            state, call,
            [&] {
                parcels();
                bench::exchangeEcho(side.echo.channel(), sizes, &buffer);
            },
            bench::Report::kMediansAndP99, std::chrono::microseconds(200));
    state.counters["bytes"] = sizes.request;
    state.counters["reply_bytes"] = sizes.reply;
}

constexpr uint32_t kStatusSize = sizeof(int32_t);

void emptyCall(benchmark::State& state, const Side& side) {
    const uint32_t request = requestSize(side.client, [](AParcel* parcel) {
        AParcel_writeInt64(parcel, 0);
        AParcel_writeInt64(parcel, 7);
    });
    measure(state, side, {request, kStatusSize},
            [&] { check(side.client->createLayer(0, 7).isOk(), "createLayer"); });
}

void integers(benchmark::State& state, const Side& side, size_t count) {
    const Values values(count, 1);
    const uint32_t request = requestSize(side.vela, [&](AParcel* parcel) {
        AParcel_writeInt32(parcel, 1);
        ndk::AParcel_writeData(parcel, values);
    });
    const auto size = static_cast<uint32_t>(kStatusSize + sizeof(int32_t) * (1 + count));
    measure(state, side, {request, size}, [&] {
        Values out;
        check(side.vela->velaConfigureGet(1, values, &out).isOk(), "velaConfigureGet");
    });
}

void eightLayers(benchmark::State& state, const Side& side) {
    const display::LayerStack stack = bench::makeStack(8, 16);
    const uint32_t request = requestSize(side.client, [&](AParcel* parcel) {
        AParcel_writeInt64(parcel, 0);
        ndk::AParcel_writeData(parcel, stack);
    });
    measure(
            state, side, {request, kStatusSize},
            [&] { check(side.client->buildLayerStack(0, stack).isOk(), "buildLayerStack"); },
            [&] { throughParcel(stack); });
}

void event(benchmark::State& state, const Side& side) {
    side.server.channel().ask('c');
    const Values values(16, 1);
    const uint32_t reply = kStatusSize + sizeof(int32_t) * 17;
    // As a request of the service takes, whose token is about as long.
    const uint32_t request = requestSize(side.client, [&](AParcel* parcel) {
        AParcel_writeInt64(parcel, 0);
        AParcel_writeInt32(parcel, 1);
        ndk::AParcel_writeData(parcel, values);
    });
    const lmfg::VelaServiceCallbacks library(*lmfg::VelaService::init());
    measure(state, side, {request, reply}, [&] {
        check(library.configChanged(0, 1, values).size() == values.size(), "configChanged");
    });
}

/** An exchange of a byte. Floor: the same over a socket. */
template <auto Side::*kChannel>
void channel(benchmark::State& state, const Side& side) {
    constexpr bench::EchoSizes kSizes{.request = sizeof(bench::EchoSizes), .reply = 1};
    std::vector<char> buffer(kSizes.request);
    bench::interleave(
            state, [&] { (side.*kChannel).exchange(); },
            [&] { bench::exchangeEcho(side.echo.channel(), kSizes, &buffer); },
            bench::Report::kMedians, std::chrono::microseconds(200));
}

// Set by main(): on this processor, and on another one if there is one.
const Side* gSame = nullptr;
const Side* gOther = nullptr;

template <auto Body>
void oneCore(benchmark::State& state) {
    Body(state, *gSame);
}

template <auto Body>
void twoCores(benchmark::State& state) {
    if (gOther == nullptr) {
        state.SkipWithError("there is only one");
        return;
    }
    Body(state, *gOther);
}

template <size_t kCount>
void integers(benchmark::State& state, const Side& side) {
    integers(state, side, kCount);
}

BENCHMARK(oneCore<emptyCall>)->Name("round trip/empty, one core")->UseManualTime();
BENCHMARK(oneCore<integers<16>>)->Name("round trip/16 integers, one core")->UseManualTime();
BENCHMARK(oneCore<integers<1024>>)->Name("round trip/1024 integers, one core")->UseManualTime();
BENCHMARK(oneCore<integers<65'536>>)->Name("round trip/65536 integers, one core")->UseManualTime();
BENCHMARK(oneCore<eightLayers>)->Name("round trip/eight layers, one core")->UseManualTime();
BENCHMARK(oneCore<event>)->Name("round trip/event with its answer, one core")->UseManualTime();
BENCHMARK(twoCores<emptyCall>)->Name("round trip/empty, two cores")->UseManualTime();
BENCHMARK(twoCores<integers<16>>)->Name("round trip/16 integers, two cores")->UseManualTime();
BENCHMARK(twoCores<integers<1024>>)->Name("round trip/1024 integers, two cores")->UseManualTime();
BENCHMARK(twoCores<integers<65'536>>)
        ->Name("round trip/65536 integers, two cores")
        ->UseManualTime();
BENCHMARK(twoCores<eightLayers>)->Name("round trip/eight layers, two cores")->UseManualTime();
BENCHMARK(twoCores<event>)->Name("round trip/event with its answer, two cores")->UseManualTime();

BENCHMARK(oneCore<channel<&Side::pipes>>)->Name("channel/pipe, one core")->UseManualTime();
BENCHMARK(oneCore<channel<&Side::memory>>)
        ->Name("channel/shared memory, one core")
        ->UseManualTime();
BENCHMARK(twoCores<channel<&Side::pipes>>)->Name("channel/pipe, two cores")->UseManualTime();
BENCHMARK(twoCores<channel<&Side::memory>>)
        ->Name("channel/shared memory, two cores")
        ->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const bench::RuntimeFolder folder;
    const std::vector<int> available = bench::processors();
    bench::runOn(available[0]);
    Side same(available[0], "bench.same");
    std::optional<Side> other;
    if (available.size() > 1) other.emplace(available[1], "bench.other");

    bench::startOwnService(kOwnName);
    same.connect();
    gSame = &same;
    if (other) {
        other->connect();
        gOther = &*other;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
