#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/chip/Chip.h"
#include "host/velahost/TraceWriter.h"

/** Another chip whose every request is written to a trace. Adds no lock around the request. */
class TracingChip : public lmfg::Chip {
  public:
    /** Neither is null. */
    TracingChip(std::shared_ptr<lmfg::Chip> chip, std::shared_ptr<TraceWriter> trace);

    void start(lmfg::VelaServiceCallbacks events) override;
    void stop() override;
    void initialize(uint32_t value4, uint32_t value1, uint32_t value2) override;
    void initSoftVela() override;
    Return<void> velaConfigureGet(int type, const hidl_vec<int>& params,
                                  ValuesResult result) override;
    Return<int32_t> velaConfigureSet(int type, const hidl_vec<int>& values) override;
    Return<void> velaConfigureBatch(int type, const hidl_string& request,
                                    StringResult result) override;
    int velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                            uint32_t size) override;
    Return<void> panelReadWrite(bool arg1, uint8_t arg2, uint8_t arg3, bool arg4,
                                const hidl_vec<uint8_t>& data, uint8_t arg6,
                                BytesResult result) override;
    void getDumpString(uint64_t display, DumpResult result) override;
    void getCurrentConfig(FixedConfigResult result) override;
    void getLayerToneMappingLut(uint64_t layer, uint32_t arg2, LutResult result) override;
    void updateDisplayBrightness(uint64_t display, int arg2, const hidl_vec<int>& values,
                                 ValuesResult result) override;
    int GetOsdState() override;
    int GetOsdOverFlow() override;
    void buildLayerStack(int display, const LayerStack& stack) override;
    int CommitLayerStack(int display, bool arg2) override;
    bool Present() override;
    bool Present2nd() override;
    int PresentDisplay() override;
    void CreateLayer(uint64_t layer, int display) override;
    void DestroyLayer(uint64_t layer) override;
    void ChangeLayerType(uint64_t layer, int type) override;
    void SetLayerCompositionType(uint64_t layer, int type) override;
    void SetLayerTransform(uint64_t layer, int transform) override;
    void SetLayerZOrder(uint64_t layer, uint32_t z) override;
    void SetLayerDisplayFrame(uint64_t layer, hwc_rect frame) override;
    void SetLayerSourceCrop(uint64_t layer, hwc_rect crop) override;
    void setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info) override;
    void setLayerProperty(uint32_t property, uint64_t value) override;
    void SetLayerSetEmpty(int display, bool empty) override;
    void setActiveConfig(const DisplayConfigVariableInfo& info) override;
    void SetPowerMode(int mode) override;
    int SetColorModeWithRenderIntent(int mode, int intent) override;
    int SetColorTransform(const std::vector<float>& matrix) override;
    int configureVelaMaxcll(int value) override;
    int handleDisplayEvent(uint64_t display, int event, int arg3) override;
    int setOsdAutoRefresh(int arg1) override;
    void SetClientTarget(int target) override;
    void reportDualChannelStatus(int status) override;
    void enableSecondaryDisplay(bool enabled) override;
    void SetPluggableDisplayConnected(bool connected) override;
    void SetVirtualDisplayConnected(bool connected) override;
    void setFrameBufferResolution(int display, uint32_t width, uint32_t height) override;
    void setPanelName(int display, const std::string& name) override;

  private:
    const std::shared_ptr<lmfg::Chip> mChip;
    const std::shared_ptr<TraceWriter> mTrace;
};
