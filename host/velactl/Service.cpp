#include "host/velactl/Service.h"

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>

namespace velactl {

using aidl::velahost::IHost;
using codec::display::IVela;

namespace {

/** The host beside this program, as one would type it. */
std::string hostProgram() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto host = program.parent_path() / "velahost";
    if (error || !std::filesystem::exists(host, error)) return "velahost";
    const std::string near = std::filesystem::proximate(host, error);
    return near.size() < host.string().size() && !error ? near : host.string();
}

}  // namespace

std::string instanceName() {
    return std::string(IVela::descriptor) + "/default";
}

Failure connect(std::shared_ptr<IVela>* out) {
    const ndk::SpAIBinder binder(AServiceManager_checkService(instanceName().c_str()));
    if (binder.get() == nullptr) {
        return noService("no service is published as " + instanceName() + "; start " +
                         hostProgram() + ", or set BINDER_RUNTIME_DIR to where one runs");
    }
    *out = IVela::fromBinder(binder);
    return *out != nullptr ? Failure{}
                           : noService(instanceName() + " is not a " + IVela::descriptor +
                                       "; another program took the name");
}

std::shared_ptr<IHost> connectHost() {
    const std::string name = std::string(IHost::descriptor) + "/default";
    return IHost::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(name.c_str())));
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
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    const auto host = connectHost();
    if (host == nullptr) {
        return usageError("who serves " + instanceName() + " makes no pictures; velahost does");
    }
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
