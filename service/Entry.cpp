#include "service/Entry.h"

#include <cstdint>
#include <memory>
#include <string>

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_manager.h>
#include <android/binder_status.h>
#include <android/log.h>

#include "support/Log.h"

namespace aidl::vendor::lumenforge::hardware::display {

std::shared_ptr<VelaDefault> gDefaultInstance;

namespace {

using lmfg::support::kLogTag;

void logRefusal(const std::string& instance, binder_status_t result) {
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "Failed to register %s", instance.c_str());
    // Deliberately never freed, neither the status nor the text.
    const AStatus* status = AStatus_fromStatus(result);
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "%s", AStatus_getDescription(status));
}

int32_t registerDefaultInstance() {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "IVela HAL starting up...");
    // A second call's object replaces the first one's closures in the library; the first, when it
    // goes, deliberately empties them again.
    gDefaultInstance = ndk::SharedRefBase::make<VelaDefault>();
    if (gDefaultInstance == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Failed to create IVela");
        return 1;
    }
    const std::string instance = std::string(IVela::descriptor) + "/default";
    const binder_status_t result =
            AServiceManager_addService(gDefaultInstance->asBinder().get(), instance.c_str());
    if (result != STATUS_OK) {
        logRefusal(instance, result);
        return 1;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "IVela HAL is registered");
    return 0;
}

}  // namespace
}  // namespace aidl::vendor::lumenforge::hardware::display

int32_t AIDL_REGISTER_IVela() {
    return aidl::vendor::lumenforge::hardware::display::registerDefaultInstance();
}
