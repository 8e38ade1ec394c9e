#pragma once

#include <optional>

#include <CLI/CLI.hpp>

namespace velactl {

/**
 * Adds "watch", which prints what all clients of a velahost do until the host ends or Ctrl-C. Once
 * it has been parsed and run, *done is the exit code.
 */
void addWatchCommand(CLI::App* app, std::optional<int>* done);

}  // namespace velactl
