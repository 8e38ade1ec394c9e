#include "host/velactl/Callbacks.h"

#include "host/velactl/Codec.h"
#include "host/velactl/Report.h"

namespace velactl {

using ndk::ScopedAStatus;

ScopedAStatus PrintingCallback::onFeatureChanged(int32_t feature,
                                                 const std::vector<int32_t>& values) {
    printLine({{"event", "feature"}, {"feature", feature}, {"values", values}});
    return ScopedAStatus::ok();
}

ScopedAStatus PrintingSoftClient::setConfig(int64_t id, int32_t config,
                                            const std::vector<int32_t>& values, int32_t* result) {
    *result = mOptions.softResult;
    printLine({{"event", "soft-set"},
               {"id", id},
               {"config", config},
               {"values", values},
               {"answer", *result}});
    return ScopedAStatus::ok();
}

ScopedAStatus PrintingSoftClient::getConfig(int64_t id, int32_t config,
                                            const std::vector<int32_t>& values,
                                            std::vector<int32_t>* result) {
    Json line{{"event", "soft-get"}, {"id", id}, {"config", config}, {"values", values}};
    if (mOptions.softError != 0) {
        line["error"] = mOptions.softError;
        printLine(line);
        return ScopedAStatus::fromServiceSpecificError(mOptions.softError);
    }
    *result = mOptions.softValues;
    line["answer"] = *result;
    printLine(line);
    return ScopedAStatus::ok();
}

ScopedAStatus PrintingComposerCallback::onConfigChanged(int64_t display, int32_t config,
                                                        const std::vector<int32_t>& values,
                                                        std::vector<int32_t>* result) {
    *result = mOptions.configResult;
    printLine({{"event", "config"},
               {"display", display},
               {"config", config},
               {"values", values},
               {"answer", *result}});
    return ScopedAStatus::ok();
}

ScopedAStatus PrintingComposerCallback::onRefreshRequested(int64_t display) {
    printLine({{"event", "refresh"}, {"display", display}});
    return ScopedAStatus::ok();
}

ScopedAStatus PrintingComposerCallback::onDisplayPowerChanged(int64_t display, int32_t mode) {
    printLine({{"event", "power"}, {"display", display}, {"mode", mode}});
    return ScopedAStatus::ok();
}

ScopedAStatus PrintingComposerCallback::onContentSamplingRequested(
        int64_t display, int32_t value1, int64_t value2, display::ContentSamples* samples) {
    *samples = mOptions.samples;
    printLine({{"event", "sampling"},
               {"display", display},
               {"value1", value1},
               {"value2", value2},
               {"answer", Codec<display::ContentSamples>::write(*samples)}});
    return ScopedAStatus::ok();
}

}  // namespace velactl
