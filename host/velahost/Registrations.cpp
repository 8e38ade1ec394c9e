#include "host/velahost/Registrations.h"

#include <cstring>
#include <utility>

using codec::Json;
using codec::display::IVela;

namespace {

/** The operation, if it registers or makes an object; null for all others. */
const codec::Operation* operationOf(const binder::ObservedCall& call) {
    if (!call.served) return nullptr;
    const codec::Interface* const interface = codec::findInterface(call.descriptor);
    if (interface == nullptr || call.code > interface->operations.size()) return nullptr;
    const auto* const operation = interface->operations[call.code - FIRST_CALL_TRANSACTION];
    return operation->name.starts_with("register") || operation->name == "createComposerClient"
                   ? operation
                   : nullptr;
}

ndk::SpAIBinder share(AIBinder* object) {
    if (object != nullptr) AIBinder_incStrong(object);
    return ndk::SpAIBinder(object);
}

ndk::ScopedAIBinder_Weak weakly(AIBinder* object) {
    return ndk::ScopedAIBinder_Weak(object == nullptr ? nullptr : AIBinder_Weak_new(object));
}

/** Null for an object that is gone or whose process is. */
ndk::SpAIBinder promoted(const ndk::ScopedAIBinder_Weak& weak) {
    ndk::SpAIBinder object(AIBinder_Weak_promote(weak.get()));
    if (object.get() != nullptr && !AIBinder_isAlive(object.get())) object.set(nullptr);
    return object;
}

}  // namespace

std::string kindOf(const std::string& type) {
    const std::string package = "vendor.lumenforge.hardware.display.";
    const codec::Interface* const interface = codec::findInterface(package + type);
    return interface == nullptr ? type : interface->name;
}

/** Adds the registration when its request has been accepted. */
class Registrations::Watch : public binder::CallWatch {
  public:
    Watch(std::shared_ptr<Registrations> owner, Registration registration)
        : mOwner(std::move(owner)), mRegistration(std::move(registration)) {}

    void ended(binder_status_t /*status*/, const AParcel* reply) override {
        ndk::ScopedAStatus status;
        if (reply == nullptr || AParcel_readStatusHeader(reply, status.getR()) != STATUS_OK ||
            !status.isOk()) {
            return;
        }
        Json answer;
        const auto name = [this](const std::string& type, AIBinder* object) {
            mRegistration.isMade = true;
            return take(type, object, &mRegistration);
        };
        if (mRegistration.operation->readResult(reply, name, &answer)) {
            mOwner->add(std::move(mRegistration));
        }
    }

    /** For reading a parcel: keeps the object that stands there. */
    static Json take(const std::string& type, AIBinder* object, Registration* out) {
        out->kind = kindOf(type);
        out->object = share(object);
        return nullptr;
    }

  private:
    const std::shared_ptr<Registrations> mOwner;
    Registration mRegistration;
};

std::unique_ptr<binder::CallWatch> Registrations::observe(const binder::ObservedCall& call,
                                                          const AParcel* arguments) {
    Registration registration{.operation = operationOf(call), .client = AIBinder_getCallingPid()};
    if (registration.operation == nullptr) return nullptr;
    if (std::strcmp(call.descriptor, IVela::descriptor) != 0) {
        registration.target = share(call.object);
    }
    const auto name = [&](const std::string& type, AIBinder* object) {
        return Watch::take(type, object, &registration);
    };
    if (!registration.operation->readArguments(arguments, name, &registration.arguments)) {
        return nullptr;
    }
    // The object is the last argument.
    if (!registration.kind.empty()) registration.arguments.erase(registration.arguments.size() - 1);
    return std::make_unique<Watch>(shared_from_this(), std::move(registration));
}

void Registrations::add(Registration registration) {
    std::vector<Registration> held;  // given up after the lock
    const std::lock_guard guard(mLock);
    held = collect();
    held.push_back(registration);
    AIBinder* const target = registration.target.get();
    std::erase_if(mEntries, [&](const Entry& entry) {
        return !registration.isMade && entry.targetAddress == target &&
               entry.registration.operation == registration.operation &&
               entry.registration.arguments == registration.arguments;
    });
    if (registration.object.get() == nullptr) return;  // it took a registration back
    Entry entry{.registration = {},
                .targetAddress = target,
                .target = weakly(target),
                .object = weakly(registration.object.get())};
    registration.target.set(nullptr);
    registration.object.set(nullptr);
    entry.registration = std::move(registration);
    mEntries.push_back(std::move(entry));
}

std::optional<Registration> Registrations::promote(const Entry& entry) {
    Registration registration = entry.registration;
    registration.target = promoted(entry.target);
    registration.object = promoted(entry.object);
    const bool isWhole = registration.object.get() != nullptr &&
                         (registration.target.get() != nullptr) == (entry.targetAddress != nullptr);
    return isWhole ? std::optional(std::move(registration)) : std::nullopt;
}

std::vector<Registration> Registrations::collect() {
    std::vector<Registration> all;
    std::erase_if(mEntries, [&all](const Entry& entry) {
        auto registration = promote(entry);
        if (registration) all.push_back(std::move(*registration));
        return !registration;
    });
    return all;
}

std::vector<Registration> Registrations::current() {
    const std::lock_guard guard(mLock);
    return collect();
}
