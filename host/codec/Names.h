#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace codec {

// The names that numbers have, by number.

inline constexpr std::array<const char*, 4> kDisplayNames = {"primary", "pluggable", "virtual",
                                                             "secondary"};
inline constexpr std::array<const char*, 6> kCompositionNames = {
        "none", "client", "device", "solid color", "cursor", "sideband"};
inline constexpr std::array<const char*, 8> kTransformNames = {
        "none",      "flip h",          "flip v",          "rotate 180",
        "rotate 90", "flip h + rot 90", "flip v + rot 90", "rotate 270"};
inline constexpr std::array<const char*, 5> kPowerModeNames = {"off", "doze", "on", "doze suspend",
                                                               "on suspend"};

/** "EINVAL" for EINVAL; the number for what has no name. */
std::string errorName(int64_t error);
/** EINVAL for "EINVAL"; 0 for what is no such name. */
int errorNumber(const std::string& name);

}  // namespace codec
