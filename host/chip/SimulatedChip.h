#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/chip/BatchLanguage.h"
#include "host/chip/Chip.h"
#include "host/chip/ChipObserver.h"
#include "host/chip/ChipState.h"
#include "host/chip/EventQueue.h"

namespace lmfg {

/**
 * A chip made of memory: it keeps what it is told, answers from it, refuses what makes no sense
 * with a negative errno value, and raises the events that batches ask for. README.md describes the
 * commands, the registers and every refusal. Operations without a result record their refusals in
 * the dump.
 *
 * Thread-safe. Events run on one thread of the chip's own, one after the other, without its lock.
 */
class [[gnu::visibility("default")]] SimulatedChip : public Chip {
  public:
    /** Takes a presented frame, numbered from 1, as JSON and as SVG. Any thread. */
    using FrameSink =
            std::function<void(uint64_t number, const std::string& json, const std::string& svg)>;

    /** Each presentation is handed to `frames`, unless that is empty. */
    explicit SimulatedChip(FrameSink frames = {});
    ~SimulatedChip() override;

    /** The frame that a display shows, as SVG; empty when it has not presented any. */
    std::string picture(int display);
    /** Waits until the events raised so far have been answered, at most 10 seconds. */
    void settle();

    void start(VelaServiceCallbacks events) override;
    void stop() override;

    void initialize(uint32_t config, uint32_t width, uint32_t height) override;
    void initSoftVela() override;

    Return<void> velaConfigureGet(int type, const hidl_vec<int>& params, ValuesResult result)
            override;
    Return<int32_t> velaConfigureSet(int type, const hidl_vec<int>& values) override;
    Return<void> velaConfigureBatch(int type, const hidl_string& request, StringResult result)
            override;
    int velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer, uint32_t size)
            override;
    Return<void> panelReadWrite(bool write, uint8_t display, uint8_t address, bool highSpeed,
                                const hidl_vec<uint8_t>& data, uint8_t readCount,
                                BytesResult result) override;

    void getDumpString(uint64_t display, DumpResult result) override;
    void getCurrentConfig(FixedConfigResult result) override;
    void getLayerToneMappingLut(uint64_t layer, uint32_t variant, LutResult result) override;
    void updateDisplayBrightness(uint64_t display, int level, const hidl_vec<int>& values,
                                 ValuesResult result) override;
    int GetOsdState() override;
    int GetOsdOverFlow() override;

    void buildLayerStack(int display, const LayerStack& stack) override;
    int CommitLayerStack(int display, bool validate) override;
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
    int configureVelaMaxcll(int nits) override;
    int handleDisplayEvent(uint64_t display, int event, int value) override;
    int setOsdAutoRefresh(int enabled) override;
    void SetClientTarget(int target) override;
    void reportDualChannelStatus(int status) override;
    void enableSecondaryDisplay(bool enabled) override;
    void SetPluggableDisplayConnected(bool connected) override;
    void SetVirtualDisplayConnected(bool connected) override;
    void setFrameBufferResolution(int display, uint32_t width, uint32_t height) override;
    void setPanelName(int display, const std::string& name) override;

  private:
    /** Calls the registered function and tells its answer. */
    using Delivery = std::function<std::string(const VelaServiceCallbacks&)>;

    struct Outcome {
        int status = 0;
        std::string text;
    };

    /** Records that `operation` was refused and why; returns `status`. */
    int refuse(const std::string& operation, int status, const std::string& reason) REQUIRES(mLock);
    /** Queues an event: its number, or a negative status. */
    int64_t raise(std::string what, Delivery deliver) REQUIRES(mLock);
    int64_t raiseFeature(int feature, std::vector<int> values) REQUIRES(mLock);
    int64_t raiseRefresh(int64_t display) REQUIRES(mLock);
    int64_t raisePower(int64_t display, int mode) REQUIRES(mLock);

    int setRegister(int type, const std::vector<int>& values) REQUIRES(mLock);
    static std::string registerReason(int type, int status);
    int getRegister(int type, const std::vector<int>& params, std::vector<int>& values)
            const REQUIRES(mLock);

    Outcome runBatch(const std::string& text);
    Outcome runCommand(const BatchCommand& command);
    Outcome queueEvent(const BatchCommand& command) REQUIRES(mLock);
    std::string eventsText() const REQUIRES(mLock);

    /** Null when there is no such display. */
    ChipDisplay* find(uint64_t display) REQUIRES(mLock);
    ChipLayer* findLayer(uint64_t layer) REQUIRES(mLock);
    template <typename Change>
    void changeLayer(const char* operation, uint64_t layer, Change change);
    void connect(int display, bool connected);
    int present(const char* operation, int display);

    const FrameSink mFrames;
    std::mutex mLock;
    ChipState mState GUARDED_BY(mLock);
    std::optional<VelaServiceCallbacks> mEvents GUARDED_BY(mLock);
    // Last, so that its thread ends before what the events use.
    EventQueue mQueue;
};

}  // namespace lmfg
