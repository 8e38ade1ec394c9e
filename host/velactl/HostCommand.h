#pragma once

#include <optional>

#include <CLI/CLI.hpp>

namespace velactl {

/**
 * Adds "host", which switches what a running velahost writes and which calls go wrong. Once it has
 * been parsed and run, *done is the exit code.
 */
void addHostCommand(CLI::App* app, std::optional<int>* done);

}  // namespace velactl
