#pragma once

#include <optional>

#include <CLI/CLI.hpp>

namespace velactl {

/** Adds `page`, `reduce` and `trim`. *out gets the exit code when one of them was given. */
void addRecordingCommands(CLI::App* app, std::optional<int>* out);

}  // namespace velactl
