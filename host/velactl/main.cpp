#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/codec/InterfaceCodec.h"
#include "host/velactl/HostCommand.h"
#include "host/velactl/Monitor.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Prompt.h"
#include "host/velactl/RecordingCommands.h"
#include "host/velactl/Replay.h"
#include "host/velactl/Report.h"
#include "host/velactl/Script.h"
#include "host/velactl/Service.h"
#include "host/velactl/Session.h"
#include "host/velactl/Watch.h"

namespace velactl {
namespace {

constexpr const char* kFooter =
        "Examples:\n"
        "  velactl vela velaConfigureSet 7 '[1,2,3]'\n"
        "  velactl session sessions/compositor\n\n"
        "Arguments are JSON values in declared order; strings need their quotes. Exit codes: 0 ok, "
        "1 an error status, an unmet expectation or a difference, 2 wrong usage, 3 no service "
        "answers.\n";

std::optional<std::string> nextLine(std::istream& lines) {
    std::string line;
    return std::getline(lines, line) ? std::optional(line) : std::nullopt;
}

int runSession(const std::string& file, bool keepGoing) {
    if (file.empty() && isatty(STDIN_FILENO) != 0) {
        Prompt prompt;
        return Script({.name = "", .keepGoing = true}, [&prompt] { return prompt.readLine(); })
                .run();
    }
    if (file.empty() || file == "-") {
        return Script({.name = "stdin", .keepGoing = keepGoing}, [] { return nextLine(std::cin); })
                .run();
    }
    std::error_code error;
    std::ifstream lines(file);
    if (!lines || std::filesystem::is_directory(file, error)) {
        return report(usageError("cannot read " + file +
                                 "; a session is a file of commands, such as sessions/compositor"));
    }
    return Script({.name = file, .keepGoing = keepGoing}, [&lines] { return nextLine(lines); })
            .run();
}

int runOperation(const std::string& interface, std::vector<std::string> words) {
    // Options come before the operation here, since its words are kept raw.
    while (!words.empty() && words.front() == "--json") {
        reportAsJson();
        words.erase(words.begin());
    }
    Json answer;
    const Failure failure = Session().run(interface, words, &answer);
    if (!failure) printAnswer(answer);
    return report(failure);
}

/** Reads an option's JSON into *out. An option that was not given leaves it as it is. */
template <typename T>
Failure readOption(const CLI::Option* option, T* out) {
    if (option->empty()) return {};
    const Json json = Json::parse(option->as<std::string>(), nullptr, false);
    std::string error = "not JSON";
    if (!json.is_discarded() && codec::Codec<T>::read(json, out, &error)) return {};
    return usageError(option->get_name() + ": " + error);
}

CLI::App* addCommand(CLI::App* app, const std::string& name, const std::string& what,
                     const std::string& examples) {
    CLI::App* command = app->add_subcommand(name, what);
    command->footer("Examples:\n" + examples + "\n");
    return command;
}

/** A subcommand whose words are kept raw: the parser would take -1 and [1,2] apart. */
CLI::App* addOperationCommand(CLI::App* app, const std::string& name, const std::string& target,
                              const std::string& examples) {
    CLI::App* command = addCommand(app, name, "Call OPERATION [JSON...] of " + target, examples);
    command->prefix_command();
    command->fallthrough(false);
    return command;
}

/** What the parser only calls a missing subcommand. */
std::string unknownCommand(const CLI::App& app, int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const auto word = std::find_if(words.begin(), words.end(),
                                   [](const auto& it) { return !it.starts_with('-'); });
    std::string names;
    for (const CLI::App* command : app.get_subcommands(nullptr))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return (word == words.end() ? "a subcommand is missing" : "no subcommand '" + *word + "'") +
           "; there are " + names;
}

int run(int argc, char** argv) {
    CLI::App app("Client of the Vela display service");
    app.footer(kFooter);
    app.set_version_flag("--version", "velactl " VELA_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag_function(
            "--json", [](int64_t) { reportAsJson(); },
            "Errors as JSON, and answers even where they would be text");
    CLI::App* infoCommand = addCommand(&app, "info", "Print what is known of the service",
                                       "  velactl info\n"
                                       "  BINDER_RUNTIME_DIR=/tmp/mine velactl info");
    CLI::App* listCommand = addCommand(&app, "list", "Print every operation and record",
                                       "  velactl list\n"
                                       "  velactl list | grep Layer");
    CLI::App* velaCommand = addOperationCommand(&app, "vela", "the main service",
                                                "  velactl vela velaConfigureGet 512 '[]'\n"
                                                "  velactl vela velaConfigureBatch 1 '\"get 7\"'");
    CLI::App* composerCommand = addOperationCommand(
            &app, "composer", "a new composer client, which takes over the composer events",
            "  velactl composer createLayer 0 7\n"
            "  velactl composer setLayerDisplayFrame 0 7 '{\"right\":1080,\"bottom\":2400}'");
    CLI::App* dumpCommand = addCommand(&app, "dump", "Print the service's dump",
                                       "  velactl dump\n"
                                       "  watch -n 1 velactl dump");

    MonitorOptions options{.id = getpid()};
    CLI::App* monitorCommand = addCommand(&app, "monitor", "Print events until interrupted",
                                          "  velactl monitor --composer\n"
                                          "  velactl monitor --soft --soft-values '[1,2]'");
    monitorCommand->add_option("--id", options.id, "Register under this number, not the own pid");
    monitorCommand->add_flag("--soft", options.soft, "Register a soft client too");
    monitorCommand->add_flag("--composer", options.composer, "Make and watch a composer client");
    monitorCommand->add_option("--soft-result", options.softResult, "Answer of a soft set");
    monitorCommand->add_option("--soft-error", options.softError, "Error that refuses a soft get");
    CLI::Option* softValues =
            monitorCommand->add_option("--soft-values", "Answer of a soft get, int[]");
    CLI::Option* configResult = monitorCommand->add_option(
            "--config-result", "Answer of a configuration change, int[]");
    CLI::Option* samples =
            monitorCommand->add_option("--samples", "Answer of a sampling request, ContentSamples");

    std::string file;
    bool keepGoing = false;
    CLI::App* sessionCommand = addCommand(&app, "session", "Run many commands as one client",
                                          "  velactl session sessions/compositor\n"
                                          "  velactl session");
    sessionCommand->add_option("file", file,
                               "Commands, one a line; - or nothing reads stdin, a prompt on a "
                               "terminal");
    sessionCommand->add_flag("--keep-going", keepGoing, "Go on after a failure");

    bool update = false;
    CLI::App* replayCommand = addCommand(&app, "replay", "Make the requests of a recording again",
                                         "  velactl replay session.jsonl\n"
                                         "  velactl replay --update session.jsonl");
    replayCommand->add_option("file", file, "What velahost --record wrote")->required();
    replayCommand->add_flag("--update", update, "Write the new answers into the recording");

    int display = 0;
    CLI::App* screenshotCommand = addCommand(&app, "screenshot", "Draw the frame that is shown",
                                             "  velactl screenshot frame.svg\n"
                                             "  velactl screenshot --display 3 second.svg");
    screenshotCommand->add_option("--display", display, "Which one; 0 is the primary")
            ->check(CLI::Range(0, 3))
            ->capture_default_str();
    screenshotCommand->add_option("file", file, "The SVG file to write")->required();

    std::optional<int> done;
    addRecordingCommands(&app, &done);
    addWatchCommand(&app, &done);
    addHostCommand(&app, &done);

    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
        if (app.get_subcommands().empty()) {
            return report(usageError(unknownCommand(app, argc, argv)));
        }
        return report(usageError(error.what()));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        return report(usageError(std::string(error.what()) + "; see velactl --help"));
    }

    if (done) return *done;
    if (infoCommand->parsed()) return report(info());
    if (listCommand->parsed()) return report(list());
    if (dumpCommand->parsed()) return report(dump());
    if (velaCommand->parsed()) return runOperation("vela", velaCommand->remaining());
    if (composerCommand->parsed()) return runOperation("composer", composerCommand->remaining());
    if (sessionCommand->parsed()) return runSession(file, keepGoing);
    if (screenshotCommand->parsed()) return report(screenshot(display, file));
    if (replayCommand->parsed()) {
        bool equal = true;
        const int code = report(replay(file, update, &equal));
        return code != kOk || equal ? code : kErrorStatus;
    }
    for (const Failure& failure :
         {readOption(softValues, &options.softValues),
          readOption(configResult, &options.configResult), readOption(samples, &options.samples)}) {
        if (failure) return report(failure);
    }
    return report(monitor(options));
}

}  // namespace
}  // namespace velactl

int main(int argc, char** argv) {
    return velactl::run(argc, argv);
}
