#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace velactl {

/** The subcommands of velactl, each with what runs it. One thread. */
class Commands {
  public:
    /** Runs a subcommand once its options are read; the exit code. */
    using Run = std::function<int()>;

    explicit Commands(CLI::App* app) : mApp(app) {}

    CLI::App* add(const std::string& name, const std::string& what, const std::string& examples,
                  Run run) {
        CLI::App* const command = mApp->add_subcommand(name, what);
        command->footer("Examples:\n" + examples + "\n");
        mCommands.emplace_back(command, std::move(run));
        return command;
    }

    /** Runs the one that was given. */
    [[nodiscard]] int run() const {
        for (const auto& [command, run] : mCommands) {
            if (command->parsed()) return run();
        }
        return 0;
    }

  private:
    CLI::App* const mApp;
    std::vector<std::pair<CLI::App*, Run>> mCommands;
};

// Each adds the subcommands of its file. What their options fill lives as long as the program.

void addServiceCommands(Commands* commands);    // info, list, dump, screenshot
void addOperationCommands(Commands* commands);  // vela, composer, describe
void addMonitorCommand(Commands* commands);
void addSessionCommands(Commands* commands);  // session, replay

}  // namespace velactl
