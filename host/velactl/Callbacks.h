#pragma once

#include <cstdint>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>

#include "host/velactl/Monitor.h"

namespace velactl {

// The clients that a monitor registers. Each prints its events as lines of JSON and answers with
// the values of the options. Their methods run on binder threads; they hold no state that changes.

class PrintingCallback : public aidl::vendor::lumenforge::hardware::display::BnVelaCallback {
  public:
    ndk::ScopedAStatus onFeatureChanged(int32_t feature,
                                        const std::vector<int32_t>& values) override;
};

class PrintingSoftClient : public aidl::vendor::lumenforge::hardware::display::BnSoftVelaClient {
  public:
    explicit PrintingSoftClient(const MonitorOptions& options) : mOptions(options) {}

    ndk::ScopedAStatus setConfig(int64_t id, int32_t config, const std::vector<int32_t>& values,
                                 int32_t* result) override;
    ndk::ScopedAStatus getConfig(int64_t id, int32_t config, const std::vector<int32_t>& values,
                                 std::vector<int32_t>* result) override;

  private:
    const MonitorOptions mOptions;
};

class PrintingComposerCallback
    : public aidl::vendor::lumenforge::hardware::display::BnVelaComposerCallback {
  public:
    explicit PrintingComposerCallback(const MonitorOptions& options) : mOptions(options) {}

    ndk::ScopedAStatus onConfigChanged(int64_t display, int32_t config,
                                       const std::vector<int32_t>& values,
                                       std::vector<int32_t>* result) override;
    ndk::ScopedAStatus onRefreshRequested(int64_t display) override;
    ndk::ScopedAStatus onDisplayPowerChanged(int64_t display, int32_t mode) override;
    ndk::ScopedAStatus onContentSamplingRequested(
            int64_t display, int32_t value1, int64_t value2,
            aidl::vendor::lumenforge::hardware::display::ContentSamples* samples) override;

  private:
    const MonitorOptions mOptions;
};

}  // namespace velactl
