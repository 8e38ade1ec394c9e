#include "bench/BenchService.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <binder_host/ServiceManager.h>

#include "bench/Processes.h"
#include "host/chip/ChipHost.h"
#include "service/VelaDefault.h"

namespace bench {

using ::aidl::vendor::lumenforge::hardware::display::VelaDefault;

std::shared_ptr<IVela> publish(const char* name) {
    lmfg::installChip(std::make_shared<BenchChip>());
    const auto made = ndk::SharedRefBase::make<VelaDefault>();
    // Held for good: the binder holds its object only while it is itself held.
    static ndk::SpAIBinder binder;
    binder = made->asBinder();
    check(AServiceManager_addService(binder.get(), name) == EX_NONE, "addService");
    return made;
}

void startOwnService(const char* name) {
    check(binder::startServiceManager() == binder::ServiceManagerHost::kThisProcess,
          "startServiceManager");
    static std::shared_ptr<IVela> own;
    own = publish(name);
    ABinderProcess_startThreadPool();
}

std::shared_ptr<IVela> service(const char* name) {
    auto found = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name)));
    check(found != nullptr, name);
    return found;
}

}  // namespace bench
