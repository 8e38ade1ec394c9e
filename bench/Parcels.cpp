// Generated code writing and reading a stack, beside a memcpy of the same bytes and the
// allocations that the result cannot do without.

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <benchmark/benchmark.h>

#include "bench/Interleaved.h"
#include "bench/Records.h"
#include "tests/support/Allocations.h"

namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;

display::LayerStack stackOf(const benchmark::State& state) {
    return bench::makeStack(static_cast<size_t>(state.range(0)),
                            static_cast<size_t>(state.range(1)));
}

std::vector<uint8_t> bytesOf(const AParcel* parcel) {
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    AParcel_marshal(parcel, bytes.data(), 0, bytes.size());
    return bytes;
}

void configure(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgsProduct({{8, 128}, {0, 16, 256}})
            ->ArgNames({"layers", "elements"})
            ->UseManualTime();
}

void writtenStack(benchmark::State& state) {
    const display::LayerStack stack = stackOf(state);
    const ndk::ScopedAParcel finished(AParcel_create());
    (void)stack.writeToParcel(finished.get());
    const std::vector<uint8_t> bytes = bytesOf(finished.get());
    const auto write = [&] {
        const ndk::ScopedAParcel parcel(AParcel_create());
        (void)stack.writeToParcel(parcel.get());
        benchmark::DoNotOptimize(parcel.get());
        benchmark::ClobberMemory();
    };
    const auto floor = [&] {
        const auto copy = std::make_unique_for_overwrite<uint8_t[]>(bytes.size());
        std::memcpy(copy.get(), bytes.data(), bytes.size());
        benchmark::DoNotOptimize(copy.get());
        benchmark::ClobberMemory();
    };
    bench::interleave(state, write, floor);
    state.counters["bytes"] = static_cast<double>(bytes.size());
    state.counters["allocations"] = static_cast<double>(vela::test::allocationsOf(write));
    state.counters["floor_allocations"] = static_cast<double>(vela::test::allocationsOf(floor));
}
BENCHMARK(writtenStack)->Name("parcel/written")->Apply(configure);

struct RawLayer {
    uint8_t fields[sizeof(display::Layer) - 3 * sizeof(std::vector<int32_t>)];
    std::unique_ptr<uint8_t[]> lists[3];
};

/** Floor: as many and as large allocations as the record's, and a memcpy into each. */
void readStack(benchmark::State& state) {
    const display::LayerStack stack = stackOf(state);
    const auto elements = static_cast<size_t>(state.range(1));
    const ndk::ScopedAParcel parcel(AParcel_create());
    (void)stack.writeToParcel(parcel.get());
    const std::vector<uint8_t> bytes = bytesOf(parcel.get());
    const auto read = [&] {
        display::LayerStack out;
        AParcel_setDataPosition(parcel.get(), 0);
        (void)out.readFromParcel(parcel.get());
        benchmark::DoNotOptimize(&out);
        benchmark::ClobberMemory();
    };
    const auto floor = [&] {
        const auto take = [&](size_t size) {
            auto copy = std::make_unique_for_overwrite<uint8_t[]>(size);
            std::memcpy(copy.get(), bytes.data(), size);
            return copy;
        };
        const auto layers = std::make_unique_for_overwrite<RawLayer[]>(stack.layers.size());
        for (size_t i = 0; i < stack.layers.size(); ++i) {
            std::memcpy(layers[i].fields, bytes.data(), sizeof(layers[i].fields));
            if (elements == 0) continue;
            layers[i].lists[0] = take(elements * sizeof(int32_t));
            layers[i].lists[1] = take(elements);
            layers[i].lists[2] = take(elements * sizeof(int32_t));
        }
        const auto list = elements == 0 ? nullptr : take(elements * sizeof(int32_t));
        benchmark::DoNotOptimize(layers.get());
        benchmark::DoNotOptimize(list.get());
        benchmark::ClobberMemory();
    };
    bench::interleave(state, read, floor);
    state.counters["bytes"] = static_cast<double>(bytes.size());
    state.counters["allocations"] = static_cast<double>(vela::test::allocationsOf(read));
    state.counters["floor_allocations"] = static_cast<double>(vela::test::allocationsOf(floor));
}
BENCHMARK(readStack)->Name("parcel/read")->Apply(configure);

}  // namespace
