#pragma once

#include <cstdint>
#include <optional>

#include <android/binder_auto_utils.h>

#include "transport/Receiver.h"

namespace binder {

/** What has a name. */
struct Registered {
    ndk::SpAIBinder binder;  // null when the name is free
    int64_t serial = 0;      // another one each time that a name is given
};

/** Asks the service manager; nothing when none answers before the deadline. */
Registered lookUp(const char* instance, const std::optional<Wait::Clock::time_point>& deadline);

}  // namespace binder
