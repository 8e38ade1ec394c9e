#include "host/velactl/Service.h"

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <android/binder_ibinder.h>

namespace velactl {

using codec::display::IVela;

std::string instanceName() {
    return std::string(IVela::descriptor) + "/default";
}

Failure connectHost(std::shared_ptr<aidl::velahost::IHost>* out) {
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    *out = connectHost();
    return *out != nullptr ? Failure{}
                           : usageError("who serves " + instanceName() + " is no velahost");
}

Failure info() {
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    int32_t version = 0;
    if (auto failure = statusError("getInterfaceVersion", vela->getInterfaceVersion(&version))) {
        return failure;
    }
    std::string hash;
    if (auto failure = statusError("getInterfaceHash", vela->getInterfaceHash(&hash))) {
        return failure;
    }
    printLine({{"instance", instanceName()},
               {"descriptor", IVela::descriptor},
               {"version", version},
               {"hash", hash},
               {"alive", AIBinder_ping(vela->asBinder().get()) == STATUS_OK}});
    return {};
}

Failure list() {
    for (const auto& operation : codec::velaOperations())
        std::cout << "vela " << operation.signature() << '\n';
    for (const auto& operation : codec::composerOperations())
        std::cout << "composer " << operation.signature() << '\n';
    for (const std::string& record : codec::recordDescriptions())
        std::cout << "record " << record << '\n';
    std::cout.flush();
    return {};
}

Failure dump() {
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    const binder_status_t status = AIBinder_dump(vela->asBinder().get(), STDOUT_FILENO, nullptr, 0);
    return statusError("dump", ndk::ScopedAStatus::fromStatus(status));
}

Failure screenshot(int display, const std::string& file) {
    std::shared_ptr<aidl::velahost::IHost> host;
    if (auto failure = connectHost(&host)) return failure;
    std::string svg;
    if (auto failure = statusError("picture", host->picture(display, &svg))) return failure;
    if (svg.empty()) {
        return usageError("display " + std::to_string(display) +
                          " shows no frame yet; present one first (velactl session "
                          "sessions/compositor)");
    }
    std::ofstream out(file);
    out << svg;
    out.close();
    return out.fail() ? usageError("cannot write " + file) : Failure{};
}

}  // namespace velactl
