#include "host/velactl/Platform.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include <aidl/velahost/IHost.h>
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
    const auto folder = std::filesystem::current_path(error);
    const std::string near = error ? host : std::filesystem::proximate(host, folder, error);
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

Failure connectHost(std::shared_ptr<aidl::velahost::IHost>* out) {
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    *out = connectHost();
    return *out != nullptr ? Failure{}
                           : usageError("who serves " + instanceName() + " is no velahost");
}

std::string restartAdvice() {
    return "start velahost again";
}

std::string freshAdvice() {
    return "scripts/with-host BIN velactl replay FILE starts one";
}

std::function<void()> settler() {
    return [host = connectHost()] {
        if (host != nullptr) (void)host->settle();
    };
}

std::function<std::vector<std::string>()> refusalTaker() {
    const auto host = connectHost();
    // Those of an earlier process of this number; a host that does not tell is as good as none.
    std::vector<std::string> old;
    if (host == nullptr || !host->takeRefusals(&old).isOk()) return nullptr;
    return [host] {
        std::vector<std::string> refusals;
        (void)host->takeRefusals(&refusals);
        return refusals;
    };
}

Failure screenshot(int display, const std::string& file) {
    const std::string extension = std::filesystem::path(file).extension();
    if (!extension.empty() && extension != ".svg") {
        return usageError("screenshots are SVG, not " + extension.substr(1) + "; name it " +
                          std::filesystem::path(file).replace_extension(".svg").string());
    }
    std::shared_ptr<IHost> host;
    if (auto failure = connectHost(&host)) return failure;
    std::string svg;
    if (auto failure = statusError("picture", host->picture(display, &svg))) return failure;
    if (svg.empty()) {
        return usageError("display " + std::to_string(display) +
                          " shows no frame yet; present one first (velactl session "
                          "sessions/compositor)");
    }
    return writeFile(file, svg);
}

}  // namespace velactl
