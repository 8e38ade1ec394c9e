#include "host/velactl/HostCommand.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <aidl/velahost/IHost.h>

#include "host/codec/Status.h"
#include "host/velactl/Platform.h"

namespace velactl {
namespace {

using aidl::velahost::IHost;

constexpr const char* kOff = "off";

/** What the command line asked for. */
struct Request {
    std::string kind;
    std::string file;
    int64_t limit = 0;
    bool times = false;
    std::vector<std::string> rules;
};

/** The host's reason as it stands, where it gives one. */
Failure hostError(const ndk::ScopedAStatus& status) {
    const std::string text = status.getMessage();
    if (text.empty()) return statusError("host", status);
    if (status.getExceptionCode() == EX_ILLEGAL_ARGUMENT) return usageError(text);
    return {.code = kErrorStatus, .text = text, .error = codec::statusToJson(status.get())};
}

Failure printState(IHost& host) {
    std::vector<std::string> state;
    if (auto failure = hostError(host.state(&state))) return failure;
    std::string text;
    for (const std::string& line : state)
        text += (text.empty() ? "" : "\n") + line;
    printResult((text.empty() ? "nothing is written, no call goes wrong" : text) + "\n", state);
    return {};
}

Failure run(const Request& request) {
    std::shared_ptr<IHost> host;
    if (auto failure = connectHost(&host)) return failure;
    if (request.kind.empty()) return printState(*host);
    if (request.file == kOff || request.rules == std::vector<std::string>{kOff}) {
        return hostError(host->stop(request.kind));
    }
    if (!request.rules.empty()) return hostError(host->fault(request.rules));
    // The host has a working folder of its own.
    std::error_code error;
    const std::string path = std::filesystem::absolute(request.file, error);
    if (error) {
        return usageError("cannot write the " + request.kind + " to '" + request.file +
                          "': " + error.message());
    }
    return hostError(host->write(request.kind, path, request.limit, request.times));
}

}  // namespace

void addHostCommand(CLI::App* app, std::optional<int>* done) {
    const auto request = std::make_shared<Request>();
    CLI::App* host = app->add_subcommand(
            "host",
            "Switch what a running velahost writes and which calls go wrong; alone, print it");
    host->footer(
            "Examples:\n"
            "  velactl host record session.jsonl; ./my-client; velactl host record off\n"
            "  velactl host fault setPowerMode=EIO 'velaConfigureGet=silent@3'\n"
            "  velactl host fault off\n");
    host->require_subcommand(0, 1);
    const auto addFile = [&](const char* kind, const char* what) {
        CLI::App* command = host->add_subcommand(kind, what);
        command->add_option("file", request->file, "The file; off ends it")->required();
        command->add_option("--limit", request->limit,
                            "Write numbered files of about this size instead")
                ->type_name("SIZE")
                ->transform(CLI::AsSizeValue(false))
                ->check(CLI::Range(int64_t{1}, int64_t{1} << 50));
        return command;
    };
    addFile("record", "Write every request and event of every client");
    addFile("journal", "Write every call of the chip")
            ->add_flag("--times", request->times, "Let the journal tell times");
    addFile("trace", "Write requests, calls and events for a trace viewer");
    host->add_subcommand("fault", "Let calls of the chip go wrong")
            ->add_option("rule", request->rules,
                         "OPERATION=WHAT[@EVERY], see velahost --fault help; off takes all away")
            ->required();
    host->callback([host, request, done] {
        for (const CLI::App* command : host->get_subcommands())
            request->kind = command->get_name();
        *done = report(run(*request));
    });
}

}  // namespace velactl
