#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>

#include "host/velactl/Commands.h"
#include "host/velactl/Prompt.h"
#include "host/velactl/Replay.h"
#include "host/velactl/Report.h"
#include "host/velactl/Script.h"

namespace velactl {
namespace {

struct SessionOptions {
    CLI::Option* file = nullptr;
    Script::Options script;
    bool summary = false;
    std::string junit;
};

std::optional<std::string> nextLine(std::istream& lines) {
    std::string line;
    return std::getline(lines, line) ? std::optional(line) : std::nullopt;
}

int runScript(const SessionOptions& options, const std::string& name, Script::NextLine next) {
    Script::Options forScript = options.script;
    forScript.name = name;
    Script script(forScript, std::move(next));
    const int code = script.run();
    const SessionReport& outcome = script.report();
    if (options.summary) note("", outcome.summary(), {{"summary", outcome.summaryJson()}});
    if (options.junit.empty()) return code;
    const int written = report(writeFile(options.junit, outcome.junit()));
    return code == kOk ? written : code;
}

int runSession(const SessionOptions& options) {
    const bool isGiven = !options.file->empty();
    const std::string file = isGiven ? options.file->as<std::string>() : "-";
    if (!isGiven && isatty(STDIN_FILENO) != 0) {
        Prompt prompt;
        return Script({.name = "", .keepGoing = true},
                      [&prompt](size_t open) { return prompt.readLine(open); })
                .run();
    }
    if (file == "-") {
        return runScript(options, "stdin", [](size_t) { return nextLine(std::cin); });
    }
    std::error_code error;
    std::ifstream lines(file);
    if (!lines || std::filesystem::is_directory(file, error)) {
        return report(usageError("cannot read " + (file.empty() ? "''" : file) +
                                 "; a session is a file of commands, such as sessions/compositor"));
    }
    return runScript(options, file, [&lines](size_t) { return nextLine(lines); });
}

}  // namespace

void addSessionCommands(Commands* commands) {
    static SessionOptions session;
    CLI::App* const sessionCommand =
            commands->add("session", "Run many commands as one client",
                          "  velactl session sessions/compositor\n"
                          "  velactl session --summary --junit out.xml mine\n"
                          "  velactl session",
                          [] { return runSession(session); });
    session.file =
            sessionCommand
                    ->add_option("FILE",
                                 "Commands, one a line (help at the prompt lists them); - or "
                                 "nothing reads stdin, a prompt on a terminal")
                    ->type_name("");
    sessionCommand->add_flag("--keep-going", session.script.keepGoing, "Go on after a failure");
    sessionCommand->add_flag("--check", session.script.onlyCheck,
                             "Only read it and tell all that is wrong; needs no service");
    sessionCommand->add_flag("--fail-on-refusal", session.script.failOnRefusal,
                             "A refusal by the chip that no expectation follows is an error");
    sessionCommand->add_flag("--summary", session.summary,
                             "Count answers, expectations, errors and refusals on stderr");
    sessionCommand
            ->add_option("--junit", session.junit, "Write the outcome for a CI, as JUnit's XML")
            ->type_name("FILE");

    static struct {
        std::string file;
        bool update = false;
    } options;
    CLI::App* const replayCommand =
            commands->add("replay", "Make the requests of a recording again",
                          "  velactl replay session.jsonl\n"
                          "  velactl replay --update session.jsonl",
                          [] {
                              bool equal = true;
                              const int code = report(replay(options.file, options.update, &equal));
                              return code != kOk || equal ? code : kErrorStatus;
                          });
    replayCommand->add_option("FILE", options.file, "What velahost --record wrote")
            ->type_name("")
            ->required();
    replayCommand->add_flag("--update", options.update, "Write the new answers into the recording");
}

}  // namespace velactl
