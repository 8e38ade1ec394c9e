#pragma once

#include <string>

#include "host/chip/ChipState.h"

namespace lmfg {

/**
 * The frame as an SVG picture, to be read in light and in dark: the display with its layers, to
 * scale unless it is too thin to be seen, and a list that names the layers, topmost first. What
 * differs from the frame `before`, which may be null, is marked.
 */
std::string pictureOf(const ChipFrame& frame, const ChipFrame* before);

}  // namespace lmfg
