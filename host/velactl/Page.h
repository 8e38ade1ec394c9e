#pragma once

#include <optional>

#include <CLI/CLI.hpp>

namespace velactl {

/**
 * Adds `page`, which writes a recording as one HTML file that shows it and needs nothing else. *out
 * gets the exit code when that subcommand was given.
 */
void addPageCommand(CLI::App* app, std::optional<int>* out);

}  // namespace velactl
