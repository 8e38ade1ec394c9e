#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>

#include "base/Log.h"
#include "calls/Observe.h"
#include "calls/Serve.h"
#include "calls/Transact.h"
#include "parcel/Status.h"

namespace {

/** The name of the remote object's class, which its process is asked for; empty when it is dead. */
std::string remoteDescriptor(AIBinder& binder) {
    std::unique_ptr<AParcel> reply;
    std::string descriptor;
    if (binder::transact(binder, binder::kInterface, AParcel(), 0, &reply) != STATUS_OK ||
        ndk::AParcel_readData(reply.get(), &descriptor) != STATUS_OK) {
        return {};
    }
    return descriptor;
}

}  // namespace

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    return new AIBinder_Class{.descriptor = interfaceDescriptor,
                              .token = AParcel::interfaceToken(interfaceDescriptor),
                              .onCreate = onCreate,
                              .onDestroy = onDestroy,
                              .onTransact = onTransact};
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    const AIBinder_Class* const current = binder->clazz();
    if (current == clazz) return true;
    const std::string& descriptor =
            current != nullptr ? current->descriptor : remoteDescriptor(*binder);
    if (descriptor != clazz->descriptor) {
        binder::log(ANDROID_LOG_ERROR, "Expecting binder to have class '%s' but descriptor is '%s'",
                    clazz->descriptor.c_str(), descriptor.c_str());
        return false;
    }
    // A remote object may be used through any class of its name.
    if (binder->isRemote()) {
        binder->offerClass(clazz);
        return true;
    }
    binder::log(ANDROID_LOG_ERROR, "Cannot associate class '%s' (%p): binder has class '%s' (%p)",
                clazz->descriptor.c_str(), static_cast<const void*>(clazz), descriptor.c_str(),
                static_cast<const void*>(current));
    return false;
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    const AIBinder_Class* const clazz = binder->clazz();
    if (clazz == nullptr) {
        binder::log(ANDROID_LOG_ERROR, "A class must be associated before a binder is called");
        return STATUS_INVALID_OPERATION;
    }
    auto parcel = std::make_unique<AParcel>();
    parcel->setTarget(binder);
    if (clazz->hasTokenHeader) {
        const binder_status_t status = parcel->writeInterfaceToken(clazz->token);
        if (status != STATUS_OK) return status;
    }
    *in = parcel.release();
    return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    const std::unique_ptr<AParcel> parcel(std::exchange(*in, nullptr));
    if (binder == nullptr || parcel == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
    *out = nullptr;
    if (!binder::isUserCode(code)) return STATUS_UNKNOWN_TRANSACTION;
    if ((flags & ~binder_flags_t{FLAG_ONEWAY}) != 0) return STATUS_BAD_VALUE;
    if (parcel->target() != binder) return STATUS_BAD_VALUE;

    std::unique_ptr<AParcel> reply;
    const binder_status_t status = binder::observed(
            false, *binder, code, *parcel,
            [&] { return (flags & FLAG_ONEWAY) != 0 ? nullptr : reply.get(); },
            [&] { return binder::transact(*binder, code, *parcel, flags, &reply); });
    if (status == STATUS_OK) *out = reply.release();
    return status;
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    std::unique_ptr<AParcel> reply;
    return binder::transact(*binder, binder::kPing, AParcel(), 0, &reply);
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (const binder::LocalObject* const local = binder::localOf(binder); local != nullptr) {
        if (local->clazz()->onDump == nullptr) return STATUS_OK;
        return binder::knownStatus(local->clazz()->onDump(binder, fd, args, numArgs));
    }
    std::vector<std::string> arguments;
    for (uint32_t i = 0; i < numArgs; ++i) {
        arguments.emplace_back(args[i] == nullptr ? "" : args[i]);
    }
    AParcel in;
    binder_status_t status = AParcel_writeParcelFileDescriptor(&in, fd);
    if (status == STATUS_OK) status = ndk::AParcel_writeData(&in, arguments);
    std::unique_ptr<AParcel> reply;
    return status != STATUS_OK ? status : binder::transact(*binder, binder::kDump, in, 0, &reply);
}
