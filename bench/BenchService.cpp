#include "bench/BenchService.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <binder_host/ServiceManager.h>

#include "bench/Processes.h"
#include "host/chip/ChipHost.h"
#include "service/VelaDefault.h"

namespace bench {

using ::aidl::vendor::lumenforge::hardware::display::VelaDefault;

void publish(const char* name) {
    lmfg::installChip(std::make_shared<BenchChip>());
    // Never destroyed: calls may be under way when the process ends.
    static const auto& made = *new auto(ndk::SharedRefBase::make<VelaDefault>());
    // The binder holds its object only while it is itself held.
    static const auto& binder = *new ndk::SpAIBinder(made->asBinder());
    check(AServiceManager_addService(binder.get(), name) == EX_NONE, "addService");
}

void startOwnService(const char* name) {
    check(binder::startServiceManager() == binder::ServiceManagerHost::kThisProcess,
          "startServiceManager");
    publish(name);
    ABinderProcess_startThreadPool();
}

std::shared_ptr<IVela> service(const char* name) {
    auto found = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name)));
    check(found != nullptr, name);
    return found;
}

}  // namespace bench
