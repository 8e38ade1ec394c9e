#include "base/Log.h"

#include <atomic>
#include <chrono>

#include <poll.h>
#include <unistd.h>

namespace binder {
namespace {

constexpr int kComplaintsPerSecond = 20;

bool mayComplain() {
    using Clock = std::chrono::steady_clock;
    static std::atomic<int64_t> second{0};
    static std::atomic<int> complaints{0};
    const int64_t now =
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch())
                    .count();
    if (second.exchange(now, std::memory_order_relaxed) != now) complaints = 0;
    if (complaints.fetch_add(1, std::memory_order_relaxed) >= kComplaintsPerSecond) return false;
    pollfd event{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    return poll(&event, 1, 0) != 0;
}

}  // namespace

void complain(android_LogPriority priority, const char* format, ...) {
    if (!mayComplain()) return;
    va_list arguments;
    va_start(arguments, format);
    __android_log_vprint(priority, "binder", format, arguments);
    va_end(arguments);
}

}  // namespace binder
