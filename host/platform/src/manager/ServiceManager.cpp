#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>

#include "base/Fork.h"
#include "base/Log.h"
#include "calls/Exports.h"
#include "calls/Process.h"
#include "calls/Proxy.h"
#include "calls/Transact.h"
#include "manager/Lookup.h"
#include "manager/NameWatch.h"
#include "manager/ServiceRegistry.h"

#include "binder_host/ServiceManager.h"

namespace binder {
namespace {

using android::base::unique_fd;
using Clock = NameWatch::Clock;

constexpr std::chrono::seconds kGetServiceTimeout{5};

/** The service manager's binder; null when none is running. */
ndk::SpAIBinder findManager() {
    Peers* const peers = joinProcesses();
    if (peers == nullptr) return {};
    const Endpoint& self = peers->self();
    char name[kMaxEndpointName];
    const ssize_t length = readlinkat(self.folder().fd(), kManagerEntry, name, sizeof(name));
    if (length < 0) return {};
    const std::string owner(name, static_cast<size_t>(length));
    if (owner == self.name()) {
        return ndk::SpAIBinder(Exports::get().find(kServiceManagerObject).release());
    }
    if (!isEndpointName(owner)) return {};
    const std::shared_ptr<Route> route = peers->route(owner);
    if (route == nullptr || route->isDead()) return {};
    StrongBinder manager = Proxy::permanent(route, kServiceManagerObject);
    manager->offerClass(serviceManagerClass());
    return ndk::SpAIBinder(manager.release());
}

using Deadline = std::optional<Clock::time_point>;
using WriteArguments = std::function<binder_status_t(AParcel*)>;

/** Calls the service manager; null when none answers in time. */
std::unique_ptr<AParcel> callManager(transaction_code_t code, const WriteArguments& write,
                                     const Deadline& deadline = std::nullopt) {
    const ndk::SpAIBinder manager = findManager();
    if (manager.get() == nullptr) return nullptr;
    AParcel in;
    std::unique_ptr<AParcel> out;
    if (in.writeInterfaceToken(serviceManagerClass()->token) != STATUS_OK ||
        write(&in) != STATUS_OK ||
        transact(*manager.get(), code, in, 0, &out, deadline) != STATUS_OK) {
        return nullptr;
    }
    return out;
}

AIBinder* checkService(const char* instance, const Deadline& deadline) {
    const Registered found = lookUp(instance, deadline);
    AIBinder_incStrong(found.binder.get());
    return found.binder.get();
}

AIBinder* waitForName(const char* instance, const Deadline& deadline) {
    AIBinder* service = nullptr;
    const auto look = [&] {
        service = checkService(instance, deadline);
        return service != nullptr;
    };
    // In a forked process there is nothing to wait for.
    if (instance != nullptr && !isForked()) waitUntil(look, deadline);
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
    Peers* const peers = joinProcesses();
    if (peers == nullptr) return ServiceManagerHost::kNone;
    const Endpoint& self = peers->self();
    unique_fd file(openat(self.folder().fd(), kManagerLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    int error = file < 0 ? errno : 0;
    bool isElsewhere = false;
    // Whoever holds the lock publishes itself, or ends and leaves it to another.
    const auto settle = [&] {
        if (flock(file, LOCK_EX | LOCK_NB) == 0) return true;
        error = errno;
        isElsewhere = findManager().get() != nullptr;
        return isElsewhere || error != EWOULDBLOCK;
    };
    const bool isSettled = error == 0 && waitUntil(settle, Clock::now() + kGetServiceTimeout);
    if (isElsewhere) return ServiceManagerHost::kAnotherProcess;
    if (!isSettled || flock(file, LOCK_EX | LOCK_NB) != 0) {
        log(ANDROID_LOG_ERROR, "Cannot host the service manager: %s", strerror(error));
        return ServiceManagerHost::kNone;
    }
    const StrongBinder registry = makeServiceRegistry(self.folder());
    Exports::get().addPermanent(kServiceManagerObject, *localOf(registry.get()));
    if (!publish(self)) return ServiceManagerHost::kNone;
    static_cast<void>(file.release());  // held, and with it the role, until the process ends
    isHost = true;
    return ServiceManagerHost::kThisProcess;
}

Registered lookUp(const char* instance, const Deadline& deadline) {
    if (instance == nullptr) return {};
    const auto write = [&](AParcel* in) {
        return ndk::AParcel_writeData(in, std::string(instance));
    };
    const std::unique_ptr<AParcel> out = callManager(kCheckService, write, deadline);
    Registered found;
    if (out == nullptr || out->readBinder(found.binder.getR()) != STATUS_OK ||
        out->readValue(&found.serial) != STATUS_OK) {
        return {};
    }
    return found;
}

std::optional<std::vector<std::string>> listServices() {
    const auto out = callManager(kListServices, [](AParcel*) { return STATUS_OK; });
    std::vector<std::string> names;
    if (out == nullptr || ndk::AParcel_readData(out.get(), &names) != STATUS_OK) {
        return std::nullopt;
    }
    return names;
}

}  // namespace binder

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
    const auto out = binder::callManager(binder::kAddService, [&](AParcel* in) {
        const binder_status_t status = ndk::AParcel_writeData(in, std::string(instance));
        return status == STATUS_OK ? AParcel_writeStrongBinder(in, binder) : status;
    });
    binder_exception_t exception = EX_TRANSACTION_FAILED;
    if (out != nullptr) AParcel_readInt32(out.get(), &exception);
    return exception;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    return binder::checkService(instance, std::nullopt);
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

binder_exception_t AServiceManager_addServiceWithFlags(
        AIBinder* binder, const char* instance, enum AServiceManager_AddServiceFlag /*flags*/) {
    return AServiceManager_addService(binder, instance);
}

void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char* instance,
                                                              void* context)) {
    if (interface == nullptr || callback == nullptr) return;
    const std::string prefix = std::string(interface) + "/";
    for (const std::string& name : binder::listServices().value_or(std::vector<std::string>())) {
        if (name.starts_with(prefix)) callback(name.c_str() + prefix.size(), context);
    }
}
