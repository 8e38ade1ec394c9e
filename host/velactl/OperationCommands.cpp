#include <memory>
#include <string>
#include <vector>

#include "host/velactl/Commands.h"
#include "host/velactl/Descriptions.h"
#include "host/velactl/Report.h"
#include "host/velactl/Session.h"

namespace velactl {
namespace {

int runOperation(const std::string& interface, std::vector<std::string> words, bool failOnRefusal) {
    // This option may stand here too, since an operation's words are kept raw.
    while (!words.empty() && words.front() == "--json") {
        reportAsJson();
        words.erase(words.begin());
    }
    const Session::Result result = Session().run(interface, words);
    if (result.failure) return report(result.failure);
    printAnswer(result.answer);
    for (const std::string& refusal : result.refusals)
        noteRefusal("", words.front(), refusal);
    return failOnRefusal && !result.refusals.empty() ? kErrorStatus : kOk;
}

/** Tells of the words that are not the parser's. */
class OperationFormatter : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App* /*app*/, std::string name) const override {
        return "Usage: " + name + " [OPTIONS] OPERATION [JSON...]\n";
    }
};

/** A subcommand whose words are kept raw: the parser would take -1 and [1,2] apart. */
void addOperationCommand(Commands* commands, const std::string& name, const std::string& target,
                         const std::string& examples) {
    struct Options {
        CLI::App* command = nullptr;
        bool failOnRefusal = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
            commands->add(name, "Call an operation of " + target, examples, [name, options] {
                return runOperation(name, options->command->remaining(), options->failOnRefusal);
            });
    options->command = command;
    command->formatter(std::make_shared<OperationFormatter>());
    command->add_flag("--fail-on-refusal", options->failOnRefusal,
                      "A refusal by the chip is an error");
    command->prefix_command();
    command->fallthrough(false);
}

}  // namespace

void addOperationCommands(Commands* commands) {
    addOperationCommand(commands, "vela", "the main service",
                        "  velactl vela velaConfigureGet 512 '[]'\n"
                        "  velactl vela velaConfigureBatch 1 '\"get 7\"'");
    addOperationCommand(
            commands, "composer",
            "a new composer client, to which the composer events go from then on",
            "  velactl composer createLayer 0 7\n"
            "  velactl composer setLayerCompositionType 0 7 solid-color\n"
            "  velactl composer setLayerDisplayFrame 0 7 '{\"right\":1080,\"bottom\":2400}'");

    static struct {
        std::string operation;
        std::string markdown;
    } options;
    CLI::App* const command = commands->add(
            "describe", "Tell what an operation does, takes and answers",
            "  velactl describe setPowerMode\n"
            "  velactl describe | less",
            [] {
                return report(options.markdown.empty() ? describe(options.operation)
                                                       : describeAsMarkdown(options.markdown));
            });
    command->add_option("OPERATION", options.operation, "Its name; all without one")->type_name("");
    command->add_option("--markdown", options.markdown,
                        "All of vela or composer, as docs/operations.md has them")
            ->check(CLI::IsMember({"vela", "composer"}));
}

}  // namespace velactl
