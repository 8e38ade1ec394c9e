#include "host/velactl/Platform.h"

#include <iostream>
#include <optional>
#include <string>

#include <android/binder_manager.h>

#include "host/velactl/HostCommand.h"
#include "host/velactl/Prompt.h"
#include "host/velactl/RecordingCommands.h"
#include "host/velactl/Service.h"
#include "host/velactl/Watch.h"

namespace velactl {

using codec::display::IVela;

namespace {

Failure needsVelahost(const std::string& command) {
    return usageError(command + " needs velahost, which serves on a PC only");
}

/** Adds a command that fails, whatever its words. */
void addAbsentCommand(CLI::App* app, const std::string& name, std::optional<int>* done) {
    CLI::App* const command = app->add_subcommand(name, "Needs velahost, on a PC");
    command->prefix_command();
    command->fallthrough(false);
    command->callback([=] { *done = report(needsVelahost(name)); });
}

}  // namespace

Failure connect(std::shared_ptr<IVela>* out) {
    const std::string name = instanceName();
    if (!AServiceManager_isDeclared(name.c_str())) {
        return noService("no manifest of this device declares " + name);
    }
    ndk::SpAIBinder binder(AServiceManager_checkService(name.c_str()));
    if (binder.get() == nullptr) {
        // Only waiting lets init start it; a host that cannot start is waited for without end.
        std::cerr << "velactl: waiting for " << name << "; logcat tells why it does not come\n";
        binder = ndk::SpAIBinder(AServiceManager_waitForService(name.c_str()));
    }
    *out = IVela::fromBinder(binder);
    return *out != nullptr ? Failure{} : noService(name + " is not a " + IVela::descriptor);
}

std::string restartAdvice() {
    return "logcat tells why, and init starts it again";
}

std::string freshAdvice() {
    return "init starts one when its host is killed";
}

std::function<void()> settler() {
    return [] {};
}

std::function<std::vector<std::string>()> refusalTaker() {
    return nullptr;
}

Failure screenshot(int /*display*/, const std::string& /*file*/) {
    return needsVelahost("screenshot");
}

void addHostCommand(CLI::App* app, std::optional<int>* done) {
    addAbsentCommand(app, "host", done);
}

void addWatchCommand(CLI::App* app, std::optional<int>* done) {
    addAbsentCommand(app, "watch", done);
}

// Recordings are read, cut and drawn on a PC.
void addRecordingCommands(CLI::App* /*app*/, std::optional<int>* /*out*/) {}

// Without line editing and history.

Prompt::Prompt() = default;

std::optional<std::string> Prompt::readLine(size_t open) {
    std::cerr << "vela" << (open == 0 ? "> " : ">> ");
    std::string line;
    return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

}  // namespace velactl
