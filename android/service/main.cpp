// A service host for devices whose vendor has none. usage: [LIBRARY], the product's where it does
// not lie where the platform build installs it.

#include <dlfcn.h>

#include <cstdint>

#include <android/binder_process.h>
#include <android/log.h>

namespace {

constexpr const char* kLibrary = "/vendor/lib64/hw/vendor.lumenforge.hardware.display-impl.so";
constexpr const char* kEntry = "AIDL_REGISTER_IVela";

// An event with an answer holds a thread of the chip's library, not one of these.
constexpr uint32_t kThreads = 8;

}  // namespace

int main(int argc, char** argv) {
    ABinderProcess_setThreadPoolMaxThreadCount(kThreads);
    ABinderProcess_startThreadPool();
    void* const library = dlopen(argc > 1 ? argv[1] : kLibrary, RTLD_NOW | RTLD_LOCAL);
    void* const entry = library == nullptr ? nullptr : dlsym(library, kEntry);
    if (entry == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "vela-service", "%s", dlerror());
        return 1;
    }
    // It logs why it could not publish the service.
    if (reinterpret_cast<int32_t (*)()>(entry)() != 0) return 1;
    ABinderProcess_joinThreadPool();
    return 1;
}
