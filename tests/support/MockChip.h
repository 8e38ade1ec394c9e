#pragma once

#include <gmock/gmock.h>

#include "host/chip/Chip.h"

namespace lmfg {

/// A chip whose every operation is an expectation. Install it with installChip(); raise its events
/// through VelaServiceCallbacks on the object that VelaService::init() returned. Unless told
/// otherwise, operations answer 0 or false, and result callbacks are not called.
class MockChip : public Chip {
  public:
    // Out of line: the expectations of so many operations are slow to compile.
    MockChip();
    ~MockChip() override;

    MOCK_METHOD(void, initialize, (uint32_t, uint32_t, uint32_t), (override));
    MOCK_METHOD(void, initSoftVela, (), (override));

    MOCK_METHOD(Return<void>, velaConfigureGet, (int, const hidl_vec<int>&, ValuesResult),
                (override));
    MOCK_METHOD(Return<int32_t>, velaConfigureSet, (int, const hidl_vec<int>&), (override));
    MOCK_METHOD(Return<void>, velaConfigureBatch, (int, const hidl_string&, StringResult),
                (override));
    MOCK_METHOD(int, velaConfigureBuffer, (int, uint64_t, const hidl_handle&, uint32_t),
                (override));
    MOCK_METHOD(Return<void>, panelReadWrite,
                (bool, uint8_t, uint8_t, bool, const hidl_vec<uint8_t>&, uint8_t, BytesResult),
                (override));

    MOCK_METHOD(void, getDumpString, (uint64_t, DumpResult), (override));
    MOCK_METHOD(void, getCurrentConfig, (FixedConfigResult), (override));
    MOCK_METHOD(void, getLayerToneMappingLut, (uint64_t, uint32_t, LutResult), (override));
    MOCK_METHOD(void, updateDisplayBrightness, (uint64_t, int, const hidl_vec<int>&, ValuesResult),
                (override));
    MOCK_METHOD(int, GetOsdState, (), (override));
    MOCK_METHOD(int, GetOsdOverFlow, (), (override));

    MOCK_METHOD(void, buildLayerStack, (int, const LayerStack&), (override));
    MOCK_METHOD(int, CommitLayerStack, (int, bool), (override));
    MOCK_METHOD(bool, Present, (), (override));
    MOCK_METHOD(bool, Present2nd, (), (override));
    MOCK_METHOD(int, PresentDisplay, (), (override));

    MOCK_METHOD(void, CreateLayer, (uint64_t, int), (override));
    MOCK_METHOD(void, DestroyLayer, (uint64_t), (override));
    MOCK_METHOD(void, ChangeLayerType, (uint64_t, int), (override));
    MOCK_METHOD(void, SetLayerCompositionType, (uint64_t, int), (override));
    MOCK_METHOD(void, SetLayerTransform, (uint64_t, int), (override));
    MOCK_METHOD(void, SetLayerZOrder, (uint64_t, uint32_t), (override));
    MOCK_METHOD(void, SetLayerDisplayFrame, (uint64_t, hwc_rect), (override));
    MOCK_METHOD(void, SetLayerSourceCrop, (uint64_t, hwc_rect), (override));
    MOCK_METHOD(void, setLayerBuffer, (uint64_t, uint64_t, const BufferInfo&), (override));
    MOCK_METHOD(void, setLayerProperty, (uint32_t, uint64_t), (override));
    MOCK_METHOD(void, SetLayerSetEmpty, (int, bool), (override));

    MOCK_METHOD(void, setActiveConfig, (const DisplayConfigVariableInfo&), (override));
    MOCK_METHOD(void, SetPowerMode, (int), (override));
    MOCK_METHOD(int, SetColorModeWithRenderIntent, (int, int), (override));
    MOCK_METHOD(int, SetColorTransform, (const std::vector<float>&), (override));
    MOCK_METHOD(int, configureVelaMaxcll, (int), (override));
    MOCK_METHOD(int, handleDisplayEvent, (uint64_t, int, int), (override));
    MOCK_METHOD(int, setOsdAutoRefresh, (int), (override));
    MOCK_METHOD(void, SetClientTarget, (int), (override));
    MOCK_METHOD(void, reportDualChannelStatus, (int), (override));
    MOCK_METHOD(void, enableSecondaryDisplay, (bool), (override));
    MOCK_METHOD(void, SetPluggableDisplayConnected, (bool), (override));
    MOCK_METHOD(void, SetVirtualDisplayConnected, (bool), (override));
    MOCK_METHOD(void, setFrameBufferResolution, (int, uint32_t, uint32_t), (override));
    MOCK_METHOD(void, setPanelName, (int, const std::string&), (override));
};

}  // namespace lmfg
