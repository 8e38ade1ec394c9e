#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/codec/StandardFiles.h"
#include "host/velactl/Commands.h"
#include "host/velactl/Descriptions.h"
#include "host/velactl/HostCommand.h"
#include "host/velactl/RecordingCommands.h"
#include "host/velactl/Report.h"
#include "host/velactl/Watch.h"

namespace velactl {
namespace {

constexpr const char* kFooter =
        "Examples:\n"
        "  velactl vela velaConfigureSet 7 '[1,2,3]'\n"
        "  velactl session sessions/compositor\n\n"
        "Arguments are JSON values in declared order; strings need their quotes. Exit codes: 0 ok, "
        "1 an error status, an unmet expectation, a difference or a full disk behind stdout, 2 "
        "wrong "
        "usage, 3 no service answers.\n";

/** What the parser only calls a missing subcommand. */
std::string unknownCommand(const CLI::App& app, int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const auto word = std::find_if(words.begin(), words.end(),
                                   [](const auto& it) { return !it.starts_with('-'); });
    std::string names;
    std::vector<std::string> candidates;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        names += (names.empty() ? "" : ", ") + command->get_name();
        candidates.push_back(command->get_name());
    }
    return (word == words.end() ? "a subcommand is missing"
                                : "no subcommand '" + *word + "'" + suggestion(*word, candidates)) +
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
    Commands commands(&app);
    addServiceCommands(&commands);
    addOperationCommands(&commands);
    addMonitorCommand(&commands);
    addSessionCommands(&commands);

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
        if (error.get_exit_code() == 0) {
            std::ostringstream text;
            (void)app.exit(error, text);
            printText(text.str());
            return kOk;
        }
        return report(usageError(std::string(error.what()) + "; see velactl --help"));
    }
    return done.has_value() ? *done : commands.run();
}

}  // namespace
}  // namespace velactl

int main(int argc, char** argv) {
    openStandardFiles();
    return velactl::run(argc, argv);
}
