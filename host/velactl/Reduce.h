#pragma once

#include <optional>

#include <CLI/CLI.hpp>

namespace velactl {

/**
 * Adds `reduce`, which finds the shortest part of a recording for which a command still fails, and
 * `trim`, which cuts a part out. *out gets the exit code when one of them was given.
 */
void addReduceCommands(CLI::App* app, std::optional<int>* out);

}  // namespace velactl
