#pragma once

#include <functional>

#include <CLI/CLI.hpp>

namespace velactl {

/**
 * Adds "watch", which prints what all clients of a velahost do until the host ends or Ctrl-C. Once
 * it is parsed, *chosen does that and returns the exit code.
 */
void addWatchCommand(CLI::App* app, std::function<int()>* chosen);

}  // namespace velactl
