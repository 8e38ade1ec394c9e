#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/chip/VelaServiceCallbacks.h"
#include "servicelib/VelaService.h"

namespace lmfg {

/**
 * What stands behind `VelaService` on Linux: one function per operation, same arguments, same
 * duties. Requests come from any thread, concurrently. `hidl_vec` and the like are those of
 * VelaService.
 */
class [[gnu::visibility("default")]] Chip {
  public:
    template <typename T>
    using hidl_vec = VelaService::hidl_vec<T>;
    template <typename T>
    using Return = VelaService::Return<T>;
    using hidl_string = VelaService::hidl_string;
    using hidl_handle = VelaService::hidl_handle;
    using BufferInfo = VelaService::BufferInfo;
    using DisplayConfigVariableInfo = VelaService::DisplayConfigVariableInfo;
    using LayerStack = VelaService::LayerStack;
    using LutData = VelaService::LutData;
    using VelaFixedConfig = VelaService::VelaFixedConfig;
    using ValuesResult = VelaService::ValuesResult;
    using StringResult = VelaService::StringResult;
    using BytesResult = VelaService::BytesResult;
    using FixedConfigResult = VelaService::FixedConfigResult;
    using LutResult = VelaService::LutResult;
    using DumpResult = VelaService::DumpResult;

    virtual ~Chip();

    /**
     * Called when the chip gets its service object: `events` may be used from now until stop()
     * returns, never from within a request's thread while a lock is held.
     */
    virtual void start(VelaServiceCallbacks /*events*/) {}
    /**
     * Called before the service object goes. When it returns, no event is under way or will
     * follow; it may be called again, and from elsewhere earlier.
     */
    virtual void stop() {}

    virtual void initialize(uint32_t value4, uint32_t value1, uint32_t value2) = 0;
    virtual void initSoftVela() = 0;

    virtual Return<void> velaConfigureGet(int type, const hidl_vec<int>& params,
                                          ValuesResult result) = 0;
    virtual Return<int32_t> velaConfigureSet(int type, const hidl_vec<int>& values) = 0;
    virtual Return<void> velaConfigureBatch(int type, const hidl_string& request,
                                            StringResult result) = 0;
    virtual int velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                                    uint32_t size) = 0;
    virtual Return<void> panelReadWrite(bool arg1, uint8_t arg2, uint8_t arg3, bool arg4,
                                        const hidl_vec<uint8_t>& data, uint8_t arg6,
                                        BytesResult result) = 0;

    virtual void getDumpString(uint64_t display, DumpResult result) = 0;
    virtual void getCurrentConfig(FixedConfigResult result) = 0;
    virtual void getLayerToneMappingLut(uint64_t layer, uint32_t arg2, LutResult result) = 0;
    virtual void updateDisplayBrightness(uint64_t display, int arg2, const hidl_vec<int>& values,
                                         ValuesResult result) = 0;
    virtual int GetOsdState() = 0;
    virtual int GetOsdOverFlow() = 0;

    virtual void buildLayerStack(int display, const LayerStack& stack) = 0;
    virtual int CommitLayerStack(int display, bool arg2) = 0;
    virtual bool Present() = 0;
    virtual bool Present2nd() = 0;
    virtual int PresentDisplay() = 0;

    virtual void CreateLayer(uint64_t layer, int display) = 0;
    virtual void DestroyLayer(uint64_t layer) = 0;
    virtual void ChangeLayerType(uint64_t layer, int type) = 0;
    virtual void SetLayerCompositionType(uint64_t layer, int type) = 0;
    virtual void SetLayerTransform(uint64_t layer, int transform) = 0;
    virtual void SetLayerZOrder(uint64_t layer, uint32_t z) = 0;
    virtual void SetLayerDisplayFrame(uint64_t layer, hwc_rect frame) = 0;
    virtual void SetLayerSourceCrop(uint64_t layer, hwc_rect crop) = 0;
    virtual void setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info) = 0;
    virtual void setLayerProperty(uint32_t property, uint64_t value) = 0;
    virtual void SetLayerSetEmpty(int display, bool empty) = 0;

    virtual void setActiveConfig(const DisplayConfigVariableInfo& info) = 0;
    virtual void SetPowerMode(int mode) = 0;
    virtual int SetColorModeWithRenderIntent(int mode, int intent) = 0;
    virtual int SetColorTransform(const std::vector<float>& matrix) = 0;
    virtual int configureVelaMaxcll(int value) = 0;
    virtual int handleDisplayEvent(uint64_t display, int event, int arg3) = 0;
    virtual int setOsdAutoRefresh(int arg1) = 0;
    virtual void SetClientTarget(int target) = 0;
    virtual void reportDualChannelStatus(int status) = 0;
    virtual void enableSecondaryDisplay(bool enabled) = 0;
    virtual void SetPluggableDisplayConnected(bool connected) = 0;
    virtual void SetVirtualDisplayConnected(bool connected) = 0;
    virtual void setFrameBufferResolution(int display, uint32_t width, uint32_t height) = 0;
    virtual void setPanelName(int display, const std::string& name) = 0;
};

}  // namespace lmfg
