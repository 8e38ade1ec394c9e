#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include <android/binder_manager.h>

#include "host/velactl/Service.h"
#include "host/velahost/RuntimeFolder.h"

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

Failure connect(std::shared_ptr<IVela>* out) {
    if (const auto problem = runtimeFolderProblem(); !problem.empty()) return noService(problem);
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

}  // namespace velactl
