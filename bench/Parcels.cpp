// Generated code writing and reading a stack.

#include <cstddef>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <benchmark/benchmark.h>

#include "bench/Records.h"
#include "tests/support/Allocations.h"

namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;

display::LayerStack stackOf(const benchmark::State& state) {
    return bench::makeStack(static_cast<size_t>(state.range(0)),
                            static_cast<size_t>(state.range(1)));
}

template <typename Call>
void measure(benchmark::State& state, Call call) {
    for ([[maybe_unused]] auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
    state.counters["allocations"] = static_cast<double>(vela::test::allocationsOf(call));
}

void configure(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgsProduct({{8, 128}, {0, 16, 256}})->ArgNames({"layers", "elements"});
}

void writtenStack(benchmark::State& state) {
    const display::LayerStack stack = stackOf(state);
    measure(state, [&] {
        const ndk::ScopedAParcel parcel(AParcel_create());
        (void)stack.writeToParcel(parcel.get());
        benchmark::DoNotOptimize(parcel.get());
    });
}
BENCHMARK(writtenStack)->Name("parcel/written")->Apply(configure);

void readStack(benchmark::State& state) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    (void)stackOf(state).writeToParcel(parcel.get());
    measure(state, [&] {
        display::LayerStack out;
        AParcel_setDataPosition(parcel.get(), 0);
        (void)out.readFromParcel(parcel.get());
        benchmark::DoNotOptimize(&out);
    });
}
BENCHMARK(readStack)->Name("parcel/read")->Apply(configure);

}  // namespace
