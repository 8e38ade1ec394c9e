#include "composer/VelaComposerClient.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <android/binder_auto_utils.h>

#include "servicelib/VelaService.h"

// Statuses of the callback are dropped unexamined: a callback leaves only by its death
// notification.

namespace aidl::vendor::lumenforge::hardware::display {

std::shared_ptr<IVelaComposerCallback> VelaComposerClient::currentCallback() {
    const std::lock_guard lock(mLock);
    return mCallback;
}

std::vector<int32_t> VelaComposerClient::onConfigChanged(int64_t display, int32_t config,
                                                         const std::vector<int32_t>& values) {
    std::vector<int32_t> result;
    if (const auto callback = currentCallback()) {
        (void)callback->onConfigChanged(display, config, values, &result);
    }
    return result;
}

void VelaComposerClient::onRefreshRequested(int64_t display) {
    if (const auto callback = currentCallback()) (void)callback->onRefreshRequested(display);
}

void VelaComposerClient::onDisplayPowerChanged(int64_t display, int32_t mode) {
    if (const auto callback = currentCallback()) {
        (void)callback->onDisplayPowerChanged(display, mode);
    }
}

lmfg::VelaContentSamples VelaComposerClient::onContentSamplingRequested(int64_t display,
                                                                        int32_t value1,
                                                                        int64_t value2) {
    const auto callback = currentCallback();
    if (callback == nullptr) return {};
    ContentSamples samples;
    (void)callback->onContentSamplingRequested(display, value1, value2, &samples);
    // A negative leading value means that there are none, whatever the lists hold.
    if (samples.value1 < 0) return {};
    return {.value1 = samples.value1,
            .list1 = std::move(samples.list1),
            .list2 = std::move(samples.list2),
            .list3 = std::move(samples.list3),
            .list4 = std::move(samples.list4)};
}

}  // namespace aidl::vendor::lumenforge::hardware::display
