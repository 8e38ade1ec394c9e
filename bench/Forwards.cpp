// What the product puts on top of the library: a forward with nothing to translate, and a stack.

#include <cstdint>
#include <memory>

#include <benchmark/benchmark.h>

#include "bench/BenchChip.h"
#include "bench/Interleaved.h"
#include "bench/Records.h"
#include "composer/VelaComposerClient.h"
#include "host/chip/ChipHost.h"
#include "tests/support/Allocations.h"
#include "translate/AidlToHidl.h"

namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;

struct Fixture {
    Fixture() { lmfg::installChip(std::make_shared<bench::BenchChip>()); }

    lmfg::VelaService* service() {
        static lmfg::VelaService* const instance = lmfg::VelaService::init();
        return instance;
    }
    std::shared_ptr<display::IVelaComposerClient> client() {
        const auto made = ndk::SharedRefBase::make<display::VelaComposerClient>();
        made->init(service());
        return made;
    }
};

Fixture& fixture() {
    static Fixture& instance = *new Fixture;
    return instance;
}

/** Floor: a status object, and the call of the library. */
void plainForward(benchmark::State& state) {
    lmfg::VelaService* service = fixture().service();
    const auto client = fixture().client();
    display::IVelaComposerClient* object = client.get();
    benchmark::DoNotOptimize(object);
    benchmark::DoNotOptimize(service);
    int64_t layer = 7;
    benchmark::DoNotOptimize(layer);
    const auto forward = [&] {
        const ndk::ScopedAStatus status = object->createLayer(0, layer);
        benchmark::DoNotOptimize(status.get());
    };
    const auto floor = [&] {
        service->CreateLayer(static_cast<uint64_t>(layer), 0);
        const ndk::ScopedAStatus status = ndk::ScopedAStatus::ok();
        benchmark::DoNotOptimize(status.get());
    };
    bench::interleave(state, forward, floor);
    state.counters["allocations"] = static_cast<double>(vela::test::allocationsOf(forward));
    state.counters["floor_allocations"] = static_cast<double>(vela::test::allocationsOf(floor));
}
BENCHMARK(plainForward)->Name("plain forward/createLayer")->UseManualTime();

/** Floor: a deep copy of the library's finished record, and a status object. */
void buildLayerStack(benchmark::State& state) {
    const auto stack = bench::makeStack(static_cast<size_t>(state.range(0)),
                                        static_cast<size_t>(state.range(1)));
    V1_1::LayerStack finished;
    (void)lmfg::a2h::translate(stack, &finished);
    lmfg::VelaService* const service = fixture().service();
    const auto client = fixture().client();
    const auto build = [&] {
        const ndk::ScopedAStatus status = client->buildLayerStack(0, stack);
        benchmark::DoNotOptimize(status.get());
    };
    const auto floor = [&] {
        V1_1::LayerStack copy = finished;
        benchmark::DoNotOptimize(&copy);
        service->buildLayerStack(0, copy);
        const ndk::ScopedAStatus status = ndk::ScopedAStatus::ok();
        benchmark::DoNotOptimize(status.get());
    };
    bench::interleave(state, build, floor);
    state.counters["allocations"] = static_cast<double>(vela::test::allocationsOf(build));
    state.counters["floor_allocations"] = static_cast<double>(vela::test::allocationsOf(floor));
}
BENCHMARK(buildLayerStack)
        ->ArgsProduct({{1, 8, 32, 128}, {0, 16, 256}})
        ->ArgNames({"layers", "elements"})
        ->UseManualTime();

}  // namespace
