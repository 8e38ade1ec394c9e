#include "host/velactl/Service.h"

#include <unistd.h>

#include <cstdint>
#include <iostream>

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>

#include "host/velactl/Operations.h"
#include "host/velactl/Report.h"

namespace velactl {

using display::IVela;

std::string instanceName() {
    return std::string(IVela::descriptor) + "/default";
}

std::shared_ptr<IVela> connect(std::string* error) {
    const ndk::SpAIBinder binder(AServiceManager_checkService(instanceName().c_str()));
    if (binder.get() == nullptr) {
        *error = "no service answers as " + instanceName();
        return nullptr;
    }
    auto vela = IVela::fromBinder(binder);
    if (vela == nullptr) *error = instanceName() + " is not a " + IVela::descriptor;
    return vela;
}

int info() {
    std::string error;
    const auto vela = connect(&error);
    if (vela == nullptr) return fail(kNoService, error);
    int32_t version = 0;
    if (const auto status = vela->getInterfaceVersion(&version); !status.isOk()) {
        return reportStatus("getInterfaceVersion", status);
    }
    std::string hash;
    if (const auto status = vela->getInterfaceHash(&hash); !status.isOk()) {
        return reportStatus("getInterfaceHash", status);
    }
    printLine({{"instance", instanceName()},
               {"descriptor", IVela::descriptor},
               {"version", version},
               {"hash", hash},
               {"alive", AIBinder_ping(vela->asBinder().get()) == STATUS_OK}});
    return kOk;
}

int list() {
    for (const auto& operation : velaOperations()) {
        std::cout << "vela " << operation.signature() << '\n';
    }
    for (const auto& operation : composerOperations()) {
        std::cout << "composer " << operation.signature() << '\n';
    }
    for (const std::string& record : recordDescriptions())
        std::cout << "record " << record << '\n';
    std::cout.flush();
    return kOk;
}

int dump() {
    std::string error;
    const auto vela = connect(&error);
    if (vela == nullptr) return fail(kNoService, error);
    const binder_status_t status = AIBinder_dump(vela->asBinder().get(), STDOUT_FILENO, nullptr, 0);
    if (status == STATUS_OK) return kOk;
    return fail(status == STATUS_DEAD_OBJECT ? kNoService : kErrorStatus,
                "dump: " + ndk::ScopedAStatus::fromStatus(status).getDescription());
}

}  // namespace velactl
