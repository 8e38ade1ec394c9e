#include "manager/NameWatch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include <limits.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "base/Log.h"

namespace binder {
namespace {

using std::chrono::milliseconds;

// How often a name is looked for, and how often where changes cannot be seen.
constexpr milliseconds kLookAgain{1000};
constexpr milliseconds kLookAgainBlindly{100};

}  // namespace

NameWatch::NameWatch(const RuntimeFolder& folder)
    : mNotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const int watch =
            inotify_add_watch(mNotify, folder.path().c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
    if (watch >= 0) return;
    log(ANDROID_LOG_ERROR, "Cannot watch %s: %s", folder.path().c_str(), strerror(errno));
    mNotify.reset();
}

bool NameWatch::wait(const std::optional<Clock::time_point>& deadline) const {
    const auto again = Clock::now() + (mNotify >= 0 ? kLookAgain : kLookAgainBlindly);
    const auto until = std::min(again, deadline.value_or(again));
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
        if (left.count() <= 0) return again <= deadline.value_or(again);
        pollfd event{.fd = mNotify, .events = POLLIN, .revents = 0};
        const int changes = poll(&event, 1, static_cast<int>(left.count()));
        if (changes > 0) {  // of a name, or of the little else that is in the folder
            char events[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
            while (read(mNotify, events, sizeof(events)) > 0) {
            }
            return true;
        }
    }
}

bool waitUntil(const std::function<bool()>& attempt,
               const std::optional<NameWatch::Clock::time_point>& deadline) {
    if (attempt()) return true;
    const RuntimeFolder* folder = RuntimeFolder::get();
    while (folder == nullptr) {
        if (errno != EMFILE ||
            NameWatch::Clock::now() > deadline.value_or(NameWatch::Clock::now())) {
            return false;
        }
        std::this_thread::sleep_for(kLookAgainBlindly);
        folder = RuntimeFolder::get();
    }
    const NameWatch watch(*folder);
    do {
        if (attempt()) return true;
    } while (watch.wait(deadline));
    return false;
}

}  // namespace binder
