#include "host/velactl/Callbacks.h"

#include <cstdint>
#include <utility>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/BnSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>

#include "host/codec/InterfaceCodec.h"

namespace velactl {
namespace {

using codec::Codec;
using codec::Json;
using ndk::ScopedAStatus;
namespace display = codec::display;

/** Calls the handler and leaves its answer in *out, which is null for none. */
template <typename Out, typename... In>
ScopedAStatus handle(const CallbackHandler& handler, const char* operation, Out* out,
                     const In&... arguments) {
    Json answer;
    ScopedAStatus status =
            handler(operation, Json::array({Codec<In>::write(arguments)...}), &answer);
    std::string error;
    if (out != nullptr && !answer.is_null()) (void)Codec<Out>::read(answer, out, &error);
    return status;
}

template <typename... In>
ScopedAStatus handleEvent(const CallbackHandler& handler, const char* operation,
                          const In&... arguments) {
    return handle(handler, operation, static_cast<int32_t*>(nullptr), arguments...);
}

class Callback : public display::BnVelaCallback {
  public:
    explicit Callback(CallbackHandler handler) : mHandler(std::move(handler)) {}

    ScopedAStatus onFeatureChanged(int32_t feature, const std::vector<int32_t>& values) override {
        return handleEvent(mHandler, "onFeatureChanged", feature, values);
    }

  private:
    const CallbackHandler mHandler;
};

class SoftClient : public display::BnSoftVelaClient {
  public:
    explicit SoftClient(CallbackHandler handler) : mHandler(std::move(handler)) {}

    ScopedAStatus setConfig(int64_t id, int32_t config, const std::vector<int32_t>& values,
                            int32_t* result) override {
        return handle(mHandler, "setConfig", result, id, config, values);
    }
    ScopedAStatus getConfig(int64_t id, int32_t config, const std::vector<int32_t>& values,
                            std::vector<int32_t>* result) override {
        return handle(mHandler, "getConfig", result, id, config, values);
    }

  private:
    const CallbackHandler mHandler;
};

class ComposerCallback : public display::BnVelaComposerCallback {
  public:
    explicit ComposerCallback(CallbackHandler handler) : mHandler(std::move(handler)) {}

    ScopedAStatus onConfigChanged(int64_t display, int32_t config,
                                  const std::vector<int32_t>& values,
                                  std::vector<int32_t>* result) override {
        return handle(mHandler, "onConfigChanged", result, display, config, values);
    }
    ScopedAStatus onRefreshRequested(int64_t display) override {
        return handleEvent(mHandler, "onRefreshRequested", display);
    }
    ScopedAStatus onDisplayPowerChanged(int64_t display, int32_t mode) override {
        return handleEvent(mHandler, "onDisplayPowerChanged", display, mode);
    }
    ScopedAStatus onContentSamplingRequested(int64_t display, int32_t value1, int64_t value2,
                                             display::ContentSamples* samples) override {
        return handle(mHandler, "onContentSamplingRequested", samples, display, value1, value2);
    }

  private:
    const CallbackHandler mHandler;
};

}  // namespace

std::shared_ptr<ndk::ICInterface> makeCallback(const std::string& type, CallbackHandler handler) {
    using ndk::SharedRefBase;
    if (type == "IVelaCallback") return SharedRefBase::make<Callback>(std::move(handler));
    if (type == "ISoftVelaClient") return SharedRefBase::make<SoftClient>(std::move(handler));
    return SharedRefBase::make<ComposerCallback>(std::move(handler));
}

}  // namespace velactl
