#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>

#include "base/Fork.h"
#include "base/Thread.h"
#include "manager/Lookup.h"
#include "manager/NameWatch.h"
#include "manager/ServiceRegistry.h"

struct AServiceManager_NotificationRegistration {
    const std::string instance;
    const AServiceManager_onRegister onRegister;
    void* const cookie;

    // Held while the function runs, which may end the registration itself.
    std::recursive_mutex lock;
    bool isEnded = false;
    int64_t last = 0;

    void look() {
        const binder::Registered found = binder::lookUp(instance.c_str(), std::nullopt);
        const std::lock_guard guard(lock);
        if (isEnded || found.binder.get() == nullptr || found.serial == last) return;
        last = found.serial;
        onRegister(instance.c_str(), found.binder.get(), cookie);
    }
};

namespace binder {
namespace {

using Registration = AServiceManager_NotificationRegistration;

/** The registrations of this process, and the thread that looks their names up. */
class Notifications {
  public:
    static Notifications& get() {
        static Notifications* const instance = new Notifications;  // outlives every thread
        return *instance;
    }

    /** False, logged, when there is no thread for it. */
    bool add(std::shared_ptr<Registration> registration, const RuntimeFolder& folder) {
        const std::lock_guard guard(mLock);
        mRegistrations.push_back(std::move(registration));
        announceChange(folder);  // the thread looks at once
        mRuns = mRuns || startThread("binder:names", [this, &folder] { run(folder); });
        if (!mRuns) mRegistrations.pop_back();
        return mRuns;
    }

    void remove(Registration& registration) {
        {
            const std::lock_guard guard(registration.lock);
            registration.isEnded = true;
        }
        const std::lock_guard guard(mLock);
        std::erase_if(mRegistrations,
                      [&](const auto& known) { return known.get() == &registration; });
    }

  private:
    void run(const RuntimeFolder& folder) {
        const NameWatch watch(folder);
        do {
            std::vector<std::shared_ptr<Registration>> registrations;
            {
                const std::lock_guard guard(mLock);
                registrations = mRegistrations;
                mRuns = !registrations.empty();
                if (!mRuns) return;
            }
            for (const std::shared_ptr<Registration>& registration : registrations)
                registration->look();
        } while (watch.wait(std::nullopt));
    }

    std::mutex mLock;
    bool mRuns GUARDED_BY(mLock) = false;
    std::vector<std::shared_ptr<Registration>> mRegistrations GUARDED_BY(mLock);
};

}  // namespace
}  // namespace binder

AServiceManager_NotificationRegistration* AServiceManager_registerForServiceNotifications(
        const char* instance, AServiceManager_onRegister onRegister, void* cookie) {
    const binder::RuntimeFolder* const folder = binder::RuntimeFolder::get();
    if (instance == nullptr || onRegister == nullptr || !binder::isServiceName(instance) ||
        folder == nullptr || binder::isForked()) {
        return nullptr;
    }
    auto registration = std::shared_ptr<AServiceManager_NotificationRegistration>(
            new AServiceManager_NotificationRegistration{
                    .instance = instance, .onRegister = onRegister, .cookie = cookie});
    auto* const handle = registration.get();
    return binder::Notifications::get().add(std::move(registration), *folder) ? handle : nullptr;
}

void AServiceManager_NotificationRegistration_delete(
        AServiceManager_NotificationRegistration* notification) {
    if (notification != nullptr) binder::Notifications::get().remove(*notification);
}
