#pragma once

#include <cstdint>

#include <android/log.h>

namespace lmfg::support {

/** The tag of every line that the product writes to the platform's log. */
inline constexpr char kLogTag[] = "VELA_LOG_SERV";

/** Bits of the objects' log masks. */
inline constexpr int32_t kLogTrace = 0x1;           // per event
inline constexpr int32_t kLogRegistration = 0x400;  // registrations and deaths of clients

}  // namespace lmfg::support
