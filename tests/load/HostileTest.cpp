#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/load/LoadTest.h"
#include "tests/platform/linux/RawProcess.h"

namespace load_test {
namespace {

using namespace platformtest;

constexpr int kOffenders = 4;
constexpr rlim_t kHostDescriptors = 1024;
constexpr const char* kNoDescriptors = "Refusing connections: no descriptors left";
// What the host may keep for offenders at one time, and the allocator afterwards.
constexpr int64_t kKeptKib = 16 * 1024;

/** A call of the object that everybody knows, with that many bytes. */
Bytes callOf(MessageKind kind, size_t bytes) {
    const auto interface = '_' << 24 | 'N' << 16 | 'T' << 8 | 'F';  // asks for its name
    return messageOf(headerOf(kind, interface, binder::kServiceManagerObject), Bytes(bytes));
}

/** Sends the same until the host has had enough of it; false when it never has. */
bool sendUntilCut(const unique_fd& socket, const Bytes& bytes) {
    for (int i = 0; i < 500'000; ++i) {
        if (send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) return true;
    }
    return false;
}

/** What a hostile process does to the host, again and again; whether the host has seen it. */
const std::map<std::string, std::function<bool(const std::filesystem::path&)>> kOffences{
        {"NeverReads",
         [](const auto& host) {
             const unique_fd socket = connectRaw(host);
             return sendUntilCut(socket, callOf(MessageKind::kCall, 16 * 1024));
         }},
        {"FloodsOneWay",
         [](const auto& host) {
             const unique_fd socket = connectRaw(host);
             return sendUntilCut(socket, callOf(MessageKind::kOneway, 16));
         }},
        {"SendsHalfMessages",
         [](const auto& host) {
             // More than the host has threads. A header with little, and half, of what it
             // announces.
             std::vector<unique_fd> sockets;
             const Bytes call = callOf(MessageKind::kCall, 100'000);
             for (int i = 0; i < 40; ++i) {
                 sockets.push_back(connectRaw(host));
                 const auto half = i % 2 == 0 ? sizeof(Header) + 1 : call.size() / 2;
                 sendBytes(sockets.back(), Bytes(call.data(), call.data() + half));
             }
             return true;
         }},
        {"ExhaustsDescriptors",
         [](const auto& host) {
             // A process's share of them with the first, and connections for the rest.
             const unique_fd file(open("/dev/null", O_RDONLY | O_CLOEXEC));
             std::vector<unique_fd> sockets;
             for (size_t i = 0; i < kHostDescriptors / kOffenders; ++i) {
                 sockets.push_back(connectRaw(host));
                 if (i == 0) {
                     const Bytes call = callOf(MessageKind::kCall, 16);
                     sendBytes(sockets.back(), {call.begin(), call.begin() + 40},
                               std::vector<int>(binder::kMaxDescriptors, file));
                 }
             }
             return true;
         }},
};

const harness::Role kOffender("offender", [](harness::Parent& parent) {
    const std::filesystem::path host = socketOf(std::stoi(parent.arguments.at(1)));
    const auto& offend = kOffences.at(parent.arguments.at(0));
    parent.say(offend(host) ? "seen" : "not seen");
    while (offend(host)) {
    }
});

class HostileTest : public LoadTest, public testing::WithParamInterface<std::string> {
  protected:
    /** The times that calls take, in order. */
    std::vector<int64_t> callTimes(int calls) {
        std::vector<int64_t> times;
        times.reserve(static_cast<size_t>(calls));
        for (int i = 0; i < calls; ++i) {
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(batch("set 1 " + std::to_string(i) + "; get 1"),
                      "set 1: ok\nget 1: [" + std::to_string(i) + "]\n");
            const std::chrono::nanoseconds time = std::chrono::steady_clock::now() - start;
            times.push_back(time.count() / 1000);
        }
        std::ranges::sort(times);
        return times;
    }
};

TEST_P(HostileTest, HoldsNobodyUpAndLeavesNothing) {
    const rlimit limit{.rlim_cur = kHostDescriptors, .rlim_max = kHostDescriptors};
    ASSERT_EQ(prlimit(host->pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    const int count = harness::countOr(1000 / kSlowness);
    figure("median_call_us", callTimes(count)[static_cast<size_t>(count) / 2]);
    const auto work = [this](int calls) {
        std::vector<harness::Child> offenders;
        offenders.reserve(kOffenders);
        for (int i = 0; i < kOffenders; ++i) {
            offenders.emplace_back("offender",
                                   std::vector{GetParam(), std::to_string(host->pid())});
        }
        const auto before = callTimes(calls);
        if (GetParam() == "ExhaustsDescriptors") {
            awaitLog(kNoDescriptors);
        } else {
            for (harness::Child& offender : offenders)
                EXPECT_EQ(offender.hear(), "seen");
        }
        const auto times = callTimes(calls);
        figure("longest_wait_us", std::max(before.back(), times.back()));
    };
    leaveNothing(count, work, kKeptKib);
    EXPECT_EQ(runProgram("velactl", {"list"}).code, 0) << "a newcomer is served";
    // It complains now and then, not of each connection that it refuses.
    const std::string log = host->errors();
    int complaints = 0;
    for (size_t at = 0; (at = log.find(kNoDescriptors, at)) != std::string::npos; ++at)
        ++complaints;
    EXPECT_LT(complaints, 300);
    figure("calls", count);
}

INSTANTIATE_TEST_SUITE_P(LoadTest, HostileTest,
                         testing::Values("NeverReads", "FloodsOneWay", "SendsHalfMessages",
                                         "ExhaustsDescriptors"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace load_test
