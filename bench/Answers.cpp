// The library's records on their way to the interface, beside allocation and copying at the speed
// of memory.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include <benchmark/benchmark.h>

#include "bench/Interleaved.h"
#include "tests/support/Allocations.h"
#include "translate/HidlToAidl.h"

namespace {

namespace display = ::aidl::vendor::lumenforge::hardware::display;
namespace V1_1 = ::vendor::lumenforge::hardware::display::V1_1;
using ::android::hardware::hidl_vec;

/** A list of the interface as raw memory: what std::vector is made of, and nothing of its own. */
struct RawList {
    std::unique_ptr<int32_t[]> begin;
    int32_t* end = nullptr;
    int32_t* capacity = nullptr;
};

template <typename T>
RawList copyOf(const hidl_vec<T>& list) {
    if (list.size() == 0) return {};
    RawList copy{std::make_unique_for_overwrite<int32_t[]>(list.size())};
    copy.end = copy.capacity = copy.begin.get() + list.size();
    if constexpr (sizeof(T) == sizeof(int32_t)) {
        std::memcpy(copy.begin.get(), list.data(), list.size() * sizeof(T));
    } else {
        std::copy_n(list.data(), list.size(), copy.begin.get());
    }
    return copy;
}

struct RawLut {
    int32_t value1, value2;
    RawList list1;
    int8_t flag1;
    RawList list2;
    int8_t flag2;
};

[[gnu::noinline]] void copyLut(const V1_1::LutData& in, RawLut* out) {
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->list1 = copyOf(in.list1);
    out->flag1 = static_cast<int8_t>(in.flag1);
    out->list2 = copyOf(in.list2);
    out->flag2 = static_cast<int8_t>(in.flag2);
}

struct RawConfig {
    int32_t value1;
    RawList list1;
    int32_t values[14];
    RawList list2;
};

[[gnu::noinline]] void copyConfig(const V1_1::VelaFixedConfig& in, RawConfig* out) {
    out->value1 = in.value1;
    out->list1 = copyOf(in.list1);
    std::memcpy(out->values, &in.value2, sizeof(out->values));
    out->list2 = copyOf(in.list2);
}

template <typename Out, typename In, typename Floor>
void answer(benchmark::State& state, const In& in, Floor floorOf) {
    const auto translated = [&] {
        Out out;
        (void)lmfg::h2a::translate(in, &out);
        benchmark::DoNotOptimize(&out);
        benchmark::ClobberMemory();
    };
    const auto floor = [&] {
        auto out = floorOf(in);
        benchmark::DoNotOptimize(&out);
        benchmark::ClobberMemory();
    };
    bench::interleave(state, translated, floor);
    state.counters["allocations"] = static_cast<double>(vela::test::allocationsOf(translated));
    state.counters["floor_allocations"] = static_cast<double>(vela::test::allocationsOf(floor));
}

void lutData(benchmark::State& state) {
    V1_1::LutData lut;
    lut.list1.resize(static_cast<size_t>(state.range(0)));
    lut.list2.resize(static_cast<size_t>(state.range(0)));
    answer<display::LutData>(state, lut, [](const V1_1::LutData& in) {
        RawLut out;
        copyLut(in, &out);
        return out;
    });
}
BENCHMARK(lutData)
        ->Name("h2a/LutData")
        ->Arg(0)
        ->RangeMultiplier(16)
        ->Range(16, 65'536)
        ->ArgName("elements")
        ->UseManualTime();

void fixedConfig(benchmark::State& state) {
    V1_1::VelaFixedConfig config;
    config.list1.resize(static_cast<size_t>(state.range(0)));
    config.list2.resize(static_cast<size_t>(state.range(0)));
    answer<display::VelaFixedConfig>(state, config, [](const V1_1::VelaFixedConfig& in) {
        RawConfig out;
        copyConfig(in, &out);
        return out;
    });
}
BENCHMARK(fixedConfig)
        ->Name("h2a/VelaFixedConfig")
        ->Arg(0)
        ->Arg(16)
        ->Arg(256)
        ->ArgName("elements")
        ->UseManualTime();

}  // namespace
