#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using Clock = std::chrono::steady_clock;

/** What so many of all values do not exceed, 0.5 for the middle one; the list is reordered. */
inline double quantile(std::vector<double>& values, double share) {
    const auto at = values.begin() +
                    static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * share);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

/** Of all the calls together; with `each`, of every single one as well. */
template <typename Call>
double nanosecondsOf(size_t calls, Call& call, std::vector<double>* each = nullptr) {
    const auto start = Clock::now();
    auto last = start;
    for (size_t i = 0; i < calls; ++i) {
        call();
        if (each == nullptr) continue;
        const auto now = Clock::now();
        each->push_back(std::chrono::duration<double, std::nano>(now - last).count());
        last = now;
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/** How many calls of it take about a block's time. */
template <typename Call>
size_t callsPerBlock(std::chrono::nanoseconds block, Call& call) {
    size_t calls = 1;
    for (; calls < 1'000'000; calls *= 2) {
        double fastest = nanosecondsOf(calls, call);
        for (int i = 0; i < 2; ++i)
            fastest = std::min(fastest, nanosecondsOf(calls, call));
        if (fastest * 2 > static_cast<double>(block.count())) break;
    }
    return calls;
}

enum class Report { kMedians, kMediansAndP99 };

/**
 * Measures a call beside the least that it could take, in turns of a block each and in changing
 * order, so that whatever else the machine does meets both. Reports medians: `ratio` of a pair of
 * blocks, `ns` and `floor_ns` of one call; and what 99 of 100 single calls do not exceed.
 */
template <typename Measured, typename Floor>
void interleave(benchmark::State& state, Measured measured, Floor floor,
                Report report = Report::kMedians,
                std::chrono::nanoseconds block = std::chrono::microseconds(40)) {
    const size_t calls = callsPerBlock(block, measured);
    std::vector<double> each;
    std::vector<double> floorEach;
    std::vector<double>* const eachOut = report == Report::kMediansAndP99 ? &each : nullptr;
    std::vector<double>* const floorOut = report == Report::kMediansAndP99 ? &floorEach : nullptr;
    std::vector<double> measuredTimes;
    std::vector<double> floorTimes;
    std::vector<double> ratios;
    bool floorFirst = true;
    for ([[maybe_unused]] auto _ : state) {
        double floorTime = floorFirst ? nanosecondsOf(calls, floor, floorOut) : 0;
        const double time = nanosecondsOf(calls, measured, eachOut);
        if (!floorFirst) floorTime = nanosecondsOf(calls, floor, floorOut);
        floorFirst = !floorFirst;
        measuredTimes.push_back(time / static_cast<double>(calls));
        floorTimes.push_back(floorTime / static_cast<double>(calls));
        ratios.push_back(time / floorTime);
        state.SetIterationTime((time + floorTime) / 1e9);
    }
    state.counters["ns"] = quantile(measuredTimes, 0.5);
    state.counters["floor_ns"] = quantile(floorTimes, 0.5);
    state.counters["ratio"] = quantile(ratios, 0.5);
    if (eachOut == nullptr) return;
    state.counters["p99_us"] = quantile(each, 0.99) / 1000;
    state.counters["floor_p99_us"] = quantile(floorEach, 0.99) / 1000;
}

}  // namespace bench
