#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <hardware/hwcomposer_defs.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include "records/V1_1/types.h"

namespace lmfg {

/**
 * The answer to a content-sampling request: `value1` is -1, and the lists are empty, when no
 * samples are delivered.
 */
struct VelaContentSamples {
    int32_t value1 = -1;
    std::vector<int64_t> list1;
    std::vector<int64_t> list2;
    std::vector<int64_t> list3;
    std::vector<int64_t> list4;
};

/**
 * The closed service library's one class: every access to the display processor.
 *
 * Requests may come from any thread, concurrently. A result callback runs before its operation
 * returns; what it is handed is valid only inside it. A negative status or result code means that
 * the library refused. The transport status inside a `Return` is never examined.
 *
 * The library calls the registered functions from threads of its own, concurrently with requests,
 * and never calls an empty one. Registration is not synchronised with those calls.
 */
class [[gnu::visibility("default")]] VelaService {
  public:
    template <typename T>
    using hidl_vec = ::android::hardware::hidl_vec<T>;
    template <typename T>
    using Return = ::android::hardware::Return<T>;
    using hidl_string = ::android::hardware::hidl_string;
    using hidl_handle = ::android::hardware::hidl_handle;
    using BufferInfo = ::vendor::lumenforge::hardware::display::V1_1::BufferInfo;
    using DisplayConfigVariableInfo =
            ::vendor::lumenforge::hardware::display::V1_1::DisplayConfigVariableInfo;
    using LayerStack = ::vendor::lumenforge::hardware::display::V1_1::LayerStack;
    using LutData = ::vendor::lumenforge::hardware::display::V1_1::LutData;
    using VelaFixedConfig = ::vendor::lumenforge::hardware::display::V1_1::VelaFixedConfig;

    using ValuesResult = std::function<void(int32_t status, const hidl_vec<int32_t>& values)>;
    using StringResult = std::function<void(int32_t status, const hidl_string& reply)>;
    using BytesResult = std::function<void(int32_t status, const hidl_vec<uint8_t>& data)>;
    using FixedConfigResult = std::function<void(int32_t status, const VelaFixedConfig& config)>;
    using LutResult = std::function<void(int32_t status, const LutData& lut)>;
    using DumpResult = std::function<void(const hidl_string& text)>;

    using FeatureChanged = std::function<void(int feature, const std::vector<int>& values)>;
    using ConfigChanged = std::function<std::vector<int>(int64_t display, int config,
                                                         const std::vector<int>& values)>;
    using RefreshRequested = std::function<void(int64_t display)>;
    using PowerChanged = std::function<void(int64_t display, int mode)>;
    using ContentSampling = std::function<VelaContentSamples(int64_t display, int, int64_t)>;
    using SoftSetConfig =
            std::function<int(int64_t clientId, int config, const std::vector<int>& values)>;
    using SoftGetConfig = std::function<std::vector<int>(
            int64_t clientId, int config, const std::vector<int>& values, int& status)>;
    using StringQuery = std::function<std::string(int type, const std::string& request)>;
    using IntCallback = std::function<int(int64_t, int)>;

    /**
     * The process's one service object, owned by the library and never deleted by the caller; null
     * when the library could not be brought up, then no request can be made.
     */
    static VelaService* init();

    VelaService();
    ~VelaService();
    VelaService(const VelaService&) = delete;
    VelaService& operator=(const VelaService&) = delete;

    /**
     * Registration: each function replaces the one that its member held; an empty one empties it.
     * Refresh, power and content sampling are members that this and registerComposerCallback share:
     * whichever ran last owns them. The third argument is accepted and deliberately discarded.
     */
    void registerVelaCallback(const FeatureChanged& featureChanged,
                              const RefreshRequested& refreshRequested,
                              const IntCallback& /*unused*/, const PowerChanged& powerChanged,
                              const ContentSampling& contentSampling) {
        mFeatureChanged = featureChanged;
        mRefreshRequested = refreshRequested;
        mPowerChanged = powerChanged;
        mContentSampling = contentSampling;
    }

    void registerSoftVelaClient(const SoftSetConfig& setConfig, const SoftGetConfig& getConfig,
                                const StringQuery& stringQuery) {
        mSoftSetConfig = setConfig;
        mSoftGetConfig = getConfig;
        mStringQuery = stringQuery;
    }

    void registerComposerCallback(
            const ConfigChanged& configChanged, const RefreshRequested& refreshRequested,
            const PowerChanged& powerChanged, const ContentSampling& contentSampling) {
        mConfigChanged = configChanged;
        mRefreshRequested = refreshRequested;
        mPowerChanged = powerChanged;
        mContentSampling = contentSampling;
    }

    // Start-up.

    /** Takes the display configuration's `value4`, `value1` and `value2`. May be repeated. */
    void initialize(uint32_t value4, uint32_t value1, uint32_t value2);
    void initSoftVela();

    // Configuration. The library alone decides what a type means.

    Return<void> velaConfigureGet(int type, const hidl_vec<int>& params, ValuesResult result);
    /** Answers the library's result code. */
    Return<int32_t> velaConfigureSet(int type, const hidl_vec<int>& values);
    Return<void> velaConfigureBatch(int type, const hidl_string& request, StringResult result);
    /**
     * Answers the result code. `buffer` and its descriptor may be used during the call only: the
     * system closes the descriptor afterwards.
     */
    int velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer, uint32_t size);
    Return<void> panelReadWrite(bool arg1, uint8_t arg2, uint8_t arg3, bool arg4,
                                const hidl_vec<uint8_t>& data, uint8_t arg6, BytesResult result);

    // Queries.

    void getDumpString(uint64_t display, DumpResult result);
    void getCurrentConfig(FixedConfigResult result);
    void getLayerToneMappingLut(uint64_t layer, uint32_t arg2, LutResult result);
    /** Each call of `result` counts; values are passed on whatever the sign of the status. */
    void updateDisplayBrightness(uint64_t display, int arg2, const hidl_vec<int>& values,
                                 ValuesResult result);
    int GetOsdState();
    int GetOsdOverFlow();

    // Layer stacks and presentation. Results are handed to the compositor unexamined.

    void buildLayerStack(int display, const LayerStack& stack);
    int CommitLayerStack(int display, bool arg2);
    bool Present();
    bool Present2nd();
    int PresentDisplay();

    // Layers.

    void CreateLayer(uint64_t layer, int display);
    void DestroyLayer(uint64_t layer);
    void ChangeLayerType(uint64_t layer, int type);
    void SetLayerCompositionType(uint64_t layer, int type);
    void SetLayerTransform(uint64_t layer, int transform);
    void SetLayerZOrder(uint64_t layer, uint32_t z);
    void SetLayerDisplayFrame(uint64_t layer, hwc_rect frame);
    void SetLayerSourceCrop(uint64_t layer, hwc_rect crop);
    void setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info);
    void setLayerProperty(uint32_t property, uint64_t value);
    void SetLayerSetEmpty(int display, bool empty);

    // Displays. Results are handed to the compositor unexamined.

    void setActiveConfig(const DisplayConfigVariableInfo& info);
    void SetPowerMode(int mode);
    int SetColorModeWithRenderIntent(int mode, int intent);
    int SetColorTransform(const std::vector<float>& matrix);
    int configureVelaMaxcll(int value);
    int handleDisplayEvent(uint64_t display, int event, int arg3);
    int setOsdAutoRefresh(int arg1);
    void SetClientTarget(int target);
    void reportDualChannelStatus(int status);
    void enableSecondaryDisplay(bool enabled);
    void SetPluggableDisplayConnected(bool connected);
    void SetVirtualDisplayConnected(bool connected);
    void setFrameBufferResolution(int display, uint32_t width, uint32_t height);
    void setPanelName(int display, const std::string& name);

  private:
    // The library's own code reads the members through this.
    friend class VelaServiceCallbacks;

    void* mState = nullptr;

    // The order is part of the contract: code compiled outside the library writes these.
    FeatureChanged mFeatureChanged;
    ConfigChanged mConfigChanged;
    RefreshRequested mRefreshRequested;
    PowerChanged mPowerChanged;
    ContentSampling mContentSampling;
    SoftSetConfig mSoftSetConfig;
    SoftGetConfig mSoftGetConfig;
    StringQuery mStringQuery;
};

static_assert(sizeof(VelaService) == std::max(sizeof(void*), alignof(std::function<void()>)) +
                                             8 * sizeof(std::function<void()>),
              "the library and its callers agree on where the callback members lie");

}  // namespace lmfg
