#pragma once

#include <functional>

#include <CLI/CLI.hpp>

namespace velactl {

/**
 * Adds "host", which switches what a running velahost writes and spoils. Once it is parsed, *chosen
 * does what was asked and returns the exit code.
 */
void addHostCommand(CLI::App* app, std::function<int()>* chosen);

}  // namespace velactl
