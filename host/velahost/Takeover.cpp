#include "host/velahost/Takeover.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include <aidl/velahost/IHost.h>
#include <android-base/unique_fd.h>
#include <android/binder_manager.h>
#include <binder_host/Observer.h>
#include <binder_host/ServiceManager.h>

#include "host/velahost/Processes.h"

namespace {

using aidl::velahost::IHost;
using android::base::unique_fd;

constexpr std::chrono::seconds kPatience{10};
constexpr const char* kElse = ", or set BINDER_RUNTIME_DIR to a folder of your own (chmod 700)";

/** Who hosts the service manager, as far as it tells. */
struct Other {
    pid_t pid = 0;  // 0: no velahost
    unique_fd process;
    ndk::ScopedAStatus asked{nullptr};
};

Other ask(bool replace) {
    const std::string name = std::string(IHost::descriptor) + "/default";
    // One that has just begun is about to publish itself.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"  // of those that wait, it ends
    const ndk::SpAIBinder binder(AServiceManager_getService(name.c_str()));
#pragma clang diagnostic pop
    const auto host = IHost::fromBinder(binder);
    if (host == nullptr) return Other{};
    Other other{.pid = binder::servingProcess(binder.get())};
    other.process.reset(static_cast<int>(syscall(SYS_pidfd_open, other.pid, 0)));
    if (replace) other.asked = host->end();
    return other;
}

/** What ask() finds; nothing when no answer comes in time, which a stopped process never gives. */
std::optional<Other> askInTime(bool replace) {
    const auto answer = std::make_shared<std::promise<Other>>();
    auto future = answer->get_future();
    std::thread([answer, replace] { answer->set_value(ask(replace)); }).detach();
    if (future.wait_for(kPatience) != std::future_status::ready) return std::nullopt;
    return future.get();
}

/** Waits for the process's end; false when it takes too long. */
bool awaitEnd(const Other& other) {
    if (other.process < 0) return true;
    pollfd ended{.fd = other.process, .events = POLLIN, .revents = 0};
    constexpr std::chrono::milliseconds kMs = kPatience;
    return poll(&ended, 1, static_cast<int>(kMs.count())) > 0;
}

}  // namespace

std::string becomeHost(bool replace) {
    while (true) {
        const auto role = binder::startServiceManager();
        if (role == binder::ServiceManagerHost::kThisProcess) return {};
        if (role == binder::ServiceManagerHost::kNone) {
            return "cannot start the service manager (see the log)";
        }
        const auto other = askInTime(replace);
        if (!other)
            return std::string("whoever hosts the service manager does not answer; end it") + kElse;
        if (other->pid == 0) {
            return std::string("another program than velahost hosts the service manager; end it") +
                   kElse;
        }
        const std::string who = processName(other->pid);
        if (!replace) {
            return who +
                   " serves vendor.lumenforge.hardware.display.IVela/default already; end it, "
                   "replace it with --replace" +
                   kElse;
        }
        if (!other->asked.isOk() && other->asked.getStatus() != STATUS_DEAD_OBJECT) {
            return who + " is not to be replaced (" + other->asked.getDescription() + "); end it" +
                   kElse;
        }
        if (!awaitEnd(*other)) return who + " was asked to end and does not; end it" + kElse;
    }
}
