#include "host/velactl/RecordingCommands.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/velactl/Page.h"
#include "host/velactl/Reduce.h"
#include "host/velactl/Report.h"

namespace velactl {
namespace {

struct Options {
    std::string recording;
    std::string output;
    std::vector<std::string> command;
    int64_t from = 0;
    int64_t to = 0;
};

/** A subcommand of a recording that writes `output`. */
CLI::App* add(CLI::App* app, const std::shared_ptr<Options>& options, const std::string& name,
              const std::string& what, const std::string& output, const std::string& examples) {
    CLI::App* command = app->add_subcommand(name, what);
    command->footer("Examples:\n" + examples);
    command->add_option("RECORDING", options->recording, "What velahost --record wrote")
            ->required();
    command->add_option("-o,--output", options->output, output)->type_name("FILE");
    return command;
}

}  // namespace

void addRecordingCommands(CLI::App* app, std::optional<int>* out) {
    const auto options = std::make_shared<Options>();
    add(app, options, "page", "Write a recording as a page for a browser",
        "The page; - is stdout; the recording's name with .html unless given",
        "  velactl page session.jsonl\n"
        "  velactl page session.jsonl -o page.html\n")
            ->callback([=] { *out = report(writePage(options->recording, options->output)); });

    CLI::App* command =
            add(app, options, "reduce", "Find the shortest recording for which a command fails",
                "What is found; the recording's name with .reduced unless given",
                "  velactl reduce session.jsonl -- ./my-check\n"
                "  velactl reduce session.jsonl -o small.jsonl -- timeout 10 ./my-check -r {}\n\n"
                "The command is run again and again, with the recording to try in the place of {}, "
                "or as its last word. It fails when it ends with the code with which it ends for "
                "the whole recording.\n");
    command->add_option("COMMAND", options->command, "Behind --")->required();
    command->callback(
            [=] { *out = report(reduce(options->recording, options->output, options->command)); });

    command = add(app, options, "trim", "Cut a part out of a recording",
                  "The part; - is stdout; the recording's name with .trimmed unless given",
                  "  velactl trim session.jsonl 40 60\n"
                  "  velactl trim session.jsonl 40 60 -o part.jsonl\n");
    command->add_option("FROM", options->from, "The first call, by its number n")->required();
    command->add_option("TO", options->to, "The last call")->required();
    command->callback([=] {
        *out = report(trim(options->recording, options->output, options->from, options->to));
    });
}

}  // namespace velactl
