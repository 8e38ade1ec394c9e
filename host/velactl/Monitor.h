#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/ContentSamples.h>

#include "host/velactl/Report.h"

namespace velactl {

/** What a monitor registers, and what it answers when the chip asks. */
struct MonitorOptions {
    int64_t id = 0;
    bool soft = false;      // register a soft client too
    bool composer = false;  // make a composer client and register its callback
    int32_t softResult = 0;
    int32_t softError = 0;  // not 0: the service-specific error that answers a soft get
    std::vector<int32_t> softValues;
    std::vector<int32_t> configResult;
    aidl::vendor::lumenforge::hardware::display::ContentSamples samples{.value1 = -1};
};

/**
 * Prints a line {"event": "registered", ...} once everything is registered, then one line of JSON
 * for each event. Returns after SIGINT or SIGTERM, or when nobody reads stdout any more, with
 * everything unregistered, or with kNoService when the service dies. Call it on the main thread
 * before any other thread runs, since it blocks the two signals.
 */
Failure monitor(const MonitorOptions& options);

}  // namespace velactl
