#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/velactl/Codec.h"
#include "host/velactl/Monitor.h"
#include "host/velactl/Report.h"
#include "host/velactl/Service.h"
#include "host/velactl/Session.h"

namespace velactl {
namespace {

constexpr const char* kFooter =
        "Arguments are JSON values in declared order; strings need their quotes. Exit codes: 0 ok, "
        "1 the service answered with an error status, 2 wrong usage, 3 no service answers.";

int runSession(const std::string& file, bool keepGoing) {
    Session session;
    if (file == "-") return session.runAll(std::cin, keepGoing);
    std::ifstream lines(file);
    if (!lines) return fail(kUsage, "cannot read " + file);
    return session.runAll(lines, keepGoing);
}

/** Reads an option's JSON into *out. An option that was not given leaves it as it is. */
template <typename T>
bool readOption(const CLI::Option* option, T* out) {
    if (option->empty()) return true;
    const Json json = Json::parse(option->as<std::string>(), nullptr, false);
    std::string error = "not JSON";
    if (!json.is_discarded() && Codec<T>::read(json, out, &error)) return true;
    fail(kUsage, option->get_name() + ": " + error);
    return false;
}

/** A subcommand whose words are kept raw: the parser would take -1 and [1,2] apart. */
CLI::App* addOperationCommand(CLI::App* app, const std::string& name, const std::string& target) {
    CLI::App* command = app->add_subcommand(name, "Call OPERATION [JSON...] of " + target);
    command->prefix_command();
    return command;
}

int run(int argc, char** argv) {
    CLI::App app("Client of the Vela display service");
    app.footer(kFooter);
    app.require_subcommand(1);
    CLI::App* infoCommand = app.add_subcommand("info", "Print what is known of the service");
    CLI::App* listCommand = app.add_subcommand("list", "Print every operation and record");
    CLI::App* velaCommand = addOperationCommand(&app, "vela", "the main service");
    CLI::App* composerCommand = addOperationCommand(
            &app, "composer", "a new composer client, which takes over the composer events");
    CLI::App* dumpCommand = app.add_subcommand("dump", "Print the service's dump");

    MonitorOptions options{.id = getpid()};
    CLI::App* monitorCommand = app.add_subcommand("monitor", "Print events until interrupted");
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
    CLI::App* sessionCommand = app.add_subcommand("session", "Run many commands as one client");
    sessionCommand->add_option("file", file, "Commands, one a line; - reads stdin")->required();
    sessionCommand->add_flag("--keep-going", keepGoing, "Go on after a failure");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kOk : kUsage;
    }

    if (infoCommand->parsed()) return info();
    if (listCommand->parsed()) return list();
    if (dumpCommand->parsed()) return dump();
    if (velaCommand->parsed()) return Session().run("vela", velaCommand->remaining());
    if (composerCommand->parsed()) return Session().run("composer", composerCommand->remaining());
    if (sessionCommand->parsed()) return runSession(file, keepGoing);
    if (!readOption(softValues, &options.softValues) ||
        !readOption(configResult, &options.configResult) ||
        !readOption(samples, &options.samples)) {
        return kUsage;
    }
    return monitor(options);
}

}  // namespace
}  // namespace velactl

int main(int argc, char** argv) {
    return velactl::run(argc, argv);
}
