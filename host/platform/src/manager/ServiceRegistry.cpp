#include "manager/ServiceRegistry.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>

#include "base/Random.h"
#include "manager/Lookup.h"

namespace binder {
namespace {

constexpr size_t kMaxName = 127;

/** Names and their objects. An object whose process dies leaves. Any thread. */
class Registry {
  public:
    explicit Registry(const RuntimeFolder& folder);

    binder_exception_t add(const std::string& name, const ndk::SpAIBinder& binder);
    Registered check(const std::string& name);
    std::vector<std::string> list();

  private:
    /** The cookie of an entry's link; the link's end deletes it. */
    struct Link {
        Registry* registry;
        std::string name;
    };
    struct Entry {
        Registered registered;
        Link* link = nullptr;  // null for an object of this process
    };

    void died(const Link* link);

    const RuntimeFolder& mFolder;
    const ndk::ScopedAIBinder_DeathRecipient mRecipient;

    std::mutex mLock;
    std::map<std::string, Entry> mEntries GUARDED_BY(mLock);
    // Begins where no other host's has been.
    int64_t mLastSerial GUARDED_BY(mLock) = static_cast<int64_t>(randomNumber() >> 1);
};

Registry::Registry(const RuntimeFolder& folder)
    : mFolder(folder), mRecipient(AIBinder_DeathRecipient_new([](void* cookie) {
          const auto* const link = static_cast<const Link*>(cookie);
          link->registry->died(link);
      })) {
    AIBinder_DeathRecipient_setOnUnlinked(mRecipient.get(),
                                          [](void* cookie) { delete static_cast<Link*>(cookie); });
}

binder_exception_t Registry::add(const std::string& name, const ndk::SpAIBinder& binder) {
    if (binder.get() == nullptr || !isServiceName(name)) return EX_ILLEGAL_ARGUMENT;
    Entry old;  // released without the lock
    {
        const std::lock_guard lock(mLock);
        Link* link = nullptr;
        if (AIBinder_isRemote(binder.get())) {
            link = new Link{this, name};
            if (AIBinder_linkToDeath(binder.get(), mRecipient.get(), link) != STATUS_OK) {
                // The link went with what the recipient does on unlinking.
                // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
                return EX_ILLEGAL_STATE;
            }
        }
        old = std::exchange(mEntries[name], Entry{{binder, ++mLastSerial}, link});
        if (old.link != nullptr) {
            AIBinder_unlinkToDeath(old.registered.binder.get(), mRecipient.get(), old.link);
        }
    }
    announceChange(mFolder);
    return EX_NONE;
}

Registered Registry::check(const std::string& name) {
    const std::lock_guard lock(mLock);
    const auto entry = mEntries.find(name);
    return entry == mEntries.end() ? Registered() : entry->second.registered;
}

std::vector<std::string> Registry::list() {
    const std::lock_guard lock(mLock);
    std::vector<std::string> names;
    for (const auto& [name, entry] : mEntries)
        names.push_back(name);
    return names;
}

void Registry::died(const Link* link) {
    ndk::SpAIBinder dead;  // released without the lock
    const std::lock_guard lock(mLock);
    const auto entry = mEntries.find(link->name);
    // The name may have been given to another object meanwhile.
    if (entry == mEntries.end() || entry->second.link != link) return;
    dead = entry->second.registered.binder;
    mEntries.erase(entry);
    announceChange(mFolder);
}

binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    Registry& registry = *static_cast<Registry*>(AIBinder_getUserData(binder));
    if (code == kListServices) return ndk::AParcel_writeData(out, registry.list());
    if (code != kAddService && code != kCheckService) return STATUS_UNKNOWN_TRANSACTION;
    std::string name;
    binder_status_t status = ndk::AParcel_readData(in, &name);
    if (status != STATUS_OK) return status;
    if (code == kCheckService) {
        const Registered found = registry.check(name);
        status = ndk::AParcel_writeNullableStrongBinder(out, found.binder);
        return status == STATUS_OK ? ndk::AParcel_writeData(out, found.serial) : status;
    }
    ndk::SpAIBinder service;
    status = ndk::AParcel_readNullableStrongBinder(in, &service);
    return status == STATUS_OK ? ndk::AParcel_writeData(out, registry.add(name, service)) : status;
}

}  // namespace

bool isServiceName(std::string_view name) {
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-' || c == '.' || c == '/';
    };
    return !name.empty() && name.size() <= kMaxName &&
           std::all_of(name.begin(), name.end(), isAllowed);
}

const AIBinder_Class* serviceManagerClass() {
    static const AIBinder_Class* const clazz = AIBinder_Class_define(
            "binder.ServiceManager", [](void* registry) { return registry; },
            [](void* registry) { delete static_cast<Registry*>(registry); }, onTransact);
    return clazz;
}

StrongBinder makeServiceRegistry(const RuntimeFolder& folder) {
    return StrongBinder(AIBinder_new(serviceManagerClass(), new Registry(folder)));
}

void announceChange(const RuntimeFolder& folder) {
    const android::base::unique_fd file(
            openat(folder.fd(), kGenerationEntry, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    static std::atomic<uint64_t> changes{0};
    if (file >= 0) dprintf(file, "%ju\n", uintmax_t{changes.fetch_add(1) + 1});
}

}  // namespace binder
