#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>

#include "Endpoint.h"
#include "Exports.h"
#include "Log.h"
#include "ServiceRegistry.h"
#include "binder_host/ServiceManager.h"

namespace binder {
namespace {

using android::base::unique_fd;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kGetServiceTimeout{5};
// How often a name is looked for where changes cannot be watched.
constexpr std::chrono::milliseconds kLookAgain{100};

/** The service manager's binder; null when none is running. */
ndk::SpAIBinder findManager() {
    Endpoint* const endpoint = Endpoint::get();
    if (endpoint == nullptr) return {};
    char name[Hello::kNameSize];
    const ssize_t length = readlinkat(endpoint->folder().fd(), kManagerEntry, name, sizeof(name));
    if (length < 0) return {};
    const std::string owner(name, static_cast<size_t>(length));
    if (owner == endpoint->name()) {
        return ndk::SpAIBinder(Exports::get().find(kServiceManagerObject).release());
    }
    if (!isEndpointName(owner)) return {};
    const std::shared_ptr<Peer> peer = endpoint->peer(owner);
    if (peer->isDead()) return {};
    const AIBinder_Class* const clazz = serviceManagerClass();
    ndk::SpAIBinder manager(peer->permanent(kServiceManagerObject, clazz->descriptor).release());
    AIBinder_associateClass(manager.get(), clazz);
    return manager;
}

/** Calls the service manager; an empty parcel when none answers. */
ndk::ScopedAParcel callManager(transaction_code_t code,
                               const std::function<binder_status_t(AParcel*)>& writeArguments) {
    const ndk::SpAIBinder manager = findManager();
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    if (AIBinder_prepareTransaction(manager.get(), in.getR()) != STATUS_OK ||
        writeArguments(in.get()) != STATUS_OK ||
        AIBinder_transact(manager.get(), code, in.getR(), out.getR(), 0) != STATUS_OK) {
        return {};
    }
    return out;
}

/** Sees the changes of the service manager and of its names. */
class ChangeWatch {
  public:
    explicit ChangeWatch(const RuntimeFolder& folder)
        : mNotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        const int watch =
                inotify_add_watch(mNotify, folder.path().c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
        if (watch < 0) {
            log(ANDROID_LOG_ERROR, "Cannot watch %s: %s", folder.path().c_str(), strerror(errno));
            mNotify.reset();
        }
    }

    /** True at a change, or after a while when none can be seen; false past the deadline. */
    bool wait(const std::optional<Clock::time_point>& deadline) const {
        for (;;) {
            int timeout = mNotify >= 0 ? -1 : static_cast<int>(kLookAgain.count());
            if (deadline.has_value()) {
                const auto left =
                        std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
                if (left.count() <= 0) return false;
                const auto most = mNotify >= 0 ? left : std::min(left, kLookAgain);
                timeout = static_cast<int>(most.count());
            }
            pollfd event{.fd = mNotify, .events = POLLIN, .revents = 0};
            const int changes = poll(&event, 1, timeout);  // without a watch just a wait
            if (mNotify < 0 || (changes > 0 && sawChange())) return true;
        }
    }

  private:
    bool sawChange() const {
        alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
        bool seen = false;
        for (ssize_t size; (size = read(mNotify, buffer, sizeof(buffer))) > 0;) {
            for (ssize_t at = 0; at < size;) {
                const auto* const event = reinterpret_cast<const inotify_event*>(buffer + at);
                const std::string_view name = event->len == 0 ? "" : event->name;
                seen = seen || name == kManagerEntry || name == kGenerationEntry ||
                       (event->mask & IN_Q_OVERFLOW) != 0;
                at += static_cast<ssize_t>(sizeof(*event) + event->len);
            }
        }
        return seen;
    }

    unique_fd mNotify;
};

/** Tries at once and again after each change. False when the deadline has passed. */
bool waitUntil(const std::function<bool()>& attempt,
               const std::optional<Clock::time_point>& deadline) {
    if (attempt()) return true;
    const RuntimeFolder* const folder = RuntimeFolder::get();
    if (folder == nullptr) return false;
    const ChangeWatch watch(*folder);
    do {
        if (attempt()) return true;
    } while (watch.wait(deadline));
    return false;
}

AIBinder* waitForName(const char* instance, const std::optional<Clock::time_point>& deadline) {
    AIBinder* service = nullptr;
    const auto look = [&] {
        service = AServiceManager_checkService(instance);
        return service != nullptr;
    };
    if (instance != nullptr) waitUntil(look, deadline);
    return service;
}

bool publish(const Endpoint& endpoint) {
    const int folder = endpoint.folder().fd();
    const std::string temporary = std::string(kManagerEntry) + ".new";
    unlinkat(folder, temporary.c_str(), 0);
    if (symlinkat(endpoint.name().c_str(), folder, temporary.c_str()) != 0 ||
        renameat(folder, temporary.c_str(), folder, kManagerEntry) != 0) {
        log(ANDROID_LOG_ERROR, "Cannot publish the service manager: %s", strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

ServiceManagerHost startServiceManager() {
    static std::mutex lock;
    static bool isHost = false;
    const std::lock_guard guard(lock);
    if (isHost) return ServiceManagerHost::kThisProcess;
    Endpoint* const endpoint = Endpoint::get();
    if (endpoint == nullptr) return ServiceManagerHost::kNone;
    unique_fd file(
            openat(endpoint->folder().fd(), kManagerLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (file < 0 || flock(file, LOCK_EX | LOCK_NB) != 0) {
        const auto found = [] { return findManager().get() != nullptr; };
        if (file >= 0 && errno == EWOULDBLOCK &&
            waitUntil(found, Clock::now() + kGetServiceTimeout)) {
            return ServiceManagerHost::kAnotherProcess;
        }
        log(ANDROID_LOG_ERROR, "Cannot host the service manager: %s", strerror(errno));
        return ServiceManagerHost::kNone;
    }
    const StrongBinder registry = makeServiceRegistry(endpoint->folder());
    Exports::get().addPermanent(kServiceManagerObject, *registry->asLocal());
    if (!publish(*endpoint)) return ServiceManagerHost::kNone;
    static_cast<void>(file.release());  // held, and with it the role, until the process ends
    isHost = true;
    return ServiceManagerHost::kThisProcess;
}

std::optional<std::vector<std::string>> listServices() {
    const ndk::ScopedAParcel out = callManager(kListServices, [](AParcel*) { return STATUS_OK; });
    std::vector<std::string> names;
    if (out.get() == nullptr || ndk::AParcel_readData(out.get(), &names) != STATUS_OK) {
        return std::nullopt;
    }
    return names;
}

}  // namespace binder

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
    const ndk::ScopedAParcel out = binder::callManager(binder::kAddService, [&](AParcel* in) {
        const binder_status_t status = ndk::AParcel_writeData(in, std::string(instance));
        return status == STATUS_OK ? AParcel_writeStrongBinder(in, binder) : status;
    });
    binder_exception_t exception = EX_TRANSACTION_FAILED;
    if (out.get() != nullptr) AParcel_readInt32(out.get(), &exception);
    return exception;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr) return nullptr;
    const ndk::ScopedAParcel out = binder::callManager(binder::kCheckService, [&](AParcel* in) {
        return ndk::AParcel_writeData(in, std::string(instance));
    });
    AIBinder* service = nullptr;
    if (out.get() != nullptr) AParcel_readStrongBinder(out.get(), &service);
    return service;
}

AIBinder* AServiceManager_getService(const char* instance) {
    return binder::waitForName(instance, binder::Clock::now() + binder::kGetServiceTimeout);
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    return binder::waitForName(instance, std::nullopt);
}

bool AServiceManager_isDeclared(const char* instance) {
    return ndk::SpAIBinder(AServiceManager_checkService(instance)).get() != nullptr;
}
