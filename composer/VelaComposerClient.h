#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerClient.h>

#include "servicelib/VelaService.h"
#include "support/DeathLink.h"
#include "support/Log.h"

namespace aidl::vendor::lumenforge::hardware::display {

/**
 * The display operations of one compositor: every request is forwarded to the service library at
 * once, on the binder thread that brought it, and the library's four composer events go to the one
 * callback that the compositor registered.
 *
 * Threads. Requests run on binder threads, events on threads of the library, the death of the
 * callback arrives on a thread of the platform, and any of them may drop the last owner of the
 * object, so the destructor may run on any of them; it calls nobody but the platform. mLock guards
 * the callback and its death record and is never held while the callback or the library is called.
 * mService is written once, before the object is handed out, and read without a lock.
 *
 * Without a service library every request gets a fixed answer: the service-specific error -1 from
 * those with an `out`, from configureBuffer, setFrameBufferResolution and setPanelName,
 * STATUS_UNKNOWN_ERROR from the others, unless an operation says otherwise. Error statuses leave
 * `out` untouched.
 */
class VelaComposerClient : public BnVelaComposerClient {
    struct AidlDeathRecipient;

  public:
    VelaComposerClient();
    /** Leaves the closures with the library; from now on they find the object gone. */
    ~VelaComposerClient() override;

    /**
     * Binds the object to the library and takes over the library's composer events from whoever had
     * them. Called once, on an object made by ndk::SharedRefBase::make, before it is handed out.
     * `service` is not owned and must outlive the object; null leaves every request degraded.
     */
    void init(lmfg::VelaService* service);

    /** Null is accepted and changes nothing. */
    ndk::ScopedAStatus registerCallback(
            const std::shared_ptr<IVelaComposerCallback>& callback) override;

    /**
     * Drops whatever callback is registered. With the record that a notification is of, only if its
     * registration has not let go.
     */
    void handleAidlDeath(const AidlDeathRecipient* notified = nullptr) EXCLUDES(mLock);

    // Configuration. A negative answer of the library is the service-specific error.

    /** Reads values when none are given, else writes them and gives the library's code. */
    ndk::ScopedAStatus configureValues(VendorConfig type, const std::vector<int32_t>& values,
                                       std::vector<int32_t>* out) override;
    ndk::ScopedAStatus configureBatch(VendorConfig type, const std::string& request,
                                      std::string* out) override;
    /** With a library, the descriptor number that `fd` holds is closed on return. */
    ndk::ScopedAStatus configureBuffer(VendorConfig type, int64_t param,
                                       const ndk::ScopedFileDescriptor& fd, int32_t size) override;

    // Layers. Results of the library reach the caller as values, never as statuses.

    ndk::ScopedAStatus buildLayerStack(int64_t display, const LayerStack& stack) override;
    ndk::ScopedAStatus changeLayerType(int64_t layer, int64_t type) override;
    ndk::ScopedAStatus commitLayerStack(int64_t display, int32_t flags, int32_t* out) override;
    ndk::ScopedAStatus createLayer(int64_t display, int64_t layer) override;
    ndk::ScopedAStatus destroyLayer(int64_t display, int64_t layer) override;
    ndk::ScopedAStatus setLayerBuffer(int64_t display, int64_t layer,
                                      const BufferInfo& buffer) override;
    ndk::ScopedAStatus setLayerCompositionType(int64_t display, int64_t layer,
                                               int32_t type) override;
    ndk::ScopedAStatus setLayerDisplayFrame(int64_t display, int64_t layer,
                                            const HwcRect& frame) override;
    ndk::ScopedAStatus setLayerProperty(int64_t display, int32_t property, int64_t value) override;
    ndk::ScopedAStatus setLayerSetEmpty(int64_t display, bool empty) override;
    ndk::ScopedAStatus setLayerSourceCrop(int64_t display, int64_t layer,
                                          const HwcRect& crop) override;
    ndk::ScopedAStatus setLayerTransform(int64_t display, int64_t layer,
                                         int32_t transform) override;
    ndk::ScopedAStatus setLayerZOrder(int64_t display, int64_t layer, int32_t z) override;

    // Displays. Results of the library reach the caller as values, never as statuses.

    ndk::ScopedAStatus configureVelaMaxcll(int32_t value, int32_t* out) override;
    ndk::ScopedAStatus enableSecondaryDisplay(bool enable) override;
    ndk::ScopedAStatus handleDisplayEvent(int64_t display, int32_t event, int32_t value,
                                          int32_t* out) override;
    /** Ok, and 1, without a library. */
    ndk::ScopedAStatus present(int64_t display, int32_t* out) override;
    ndk::ScopedAStatus presentDisplay(int64_t display, int32_t* out) override;
    ndk::ScopedAStatus reportDualChannelStatus(int32_t status) override;
    ndk::ScopedAStatus setActiveConfig(int64_t display,
                                       const DisplayConfigVariableInfo& config) override;
    ndk::ScopedAStatus setClientTarget(int64_t display, int32_t target) override;
    ndk::ScopedAStatus setColorModeWithRenderIntent(int64_t display, int32_t mode, int32_t intent,
                                                    int32_t* out) override;
    ndk::ScopedAStatus setDisplayConnected(int64_t display, bool connected) override;
    ndk::ScopedAStatus setOsdAutoRefresh(int32_t enable, int32_t* out) override;
    ndk::ScopedAStatus setPowerMode(int64_t display, int32_t mode, bool first, bool second,
                                    int32_t* out) override;
    ndk::ScopedAStatus setColorTransform(const std::vector<float>& matrix, int32_t* out) override;
    /** STATUS_UNKNOWN_ERROR, always. */
    ndk::ScopedAStatus configureVelaHdrMode(int32_t mode) override;
    ndk::ScopedAStatus setFrameBufferResolution(int64_t display, int32_t width,
                                                int32_t height) override;
    ndk::ScopedAStatus setPanelName(int64_t display, const std::string& name) override;

    // Queries.

    /** Fails with the library's status if it is negative, with -1 if the library never answers. */
    ndk::ScopedAStatus getCurrentConfig(int64_t display, VelaFixedConfig* out) override;
    /** As getCurrentConfig. */
    ndk::ScopedAStatus getLayerToneMappingLut(int64_t layer, int32_t table, LutData* out) override;
    /** Ok, and empty, if the library never answers. */
    ndk::ScopedAStatus getDumpString(int64_t display, std::string* out) override;
    /** The state for 0, the overflow for 1, and 0 without asking the library for anything else. */
    ndk::ScopedAStatus getOsdStatus(int32_t which, int32_t* out) override;
    /**
     * Never an error: `out` holds the library's status, then its values; nothing when the library
     * did not answer, -1 alone without a library.
     */
    ndk::ScopedAStatus updateDisplayBrightness(int64_t display, int32_t brightness,
                                               const std::vector<int32_t>& values,
                                               std::vector<int32_t>* out) override;

    // Events, called by the closures of init. What the callback leaves in its out-parameter counts,
    // whatever status it returns.

    std::vector<int32_t> onConfigChanged(int64_t display, int32_t config,
                                         const std::vector<int32_t>& values);
    void onRefreshRequested(int64_t display);
    void onDisplayPowerChanged(int64_t display, int32_t mode);
    lmfg::VelaContentSamples onContentSamplingRequested(int64_t display, int32_t value1,
                                                        int64_t value2);

  private:
    /** The death link of the registered callback. */
    struct AidlDeathRecipient : lmfg::support::DeathLink {
        explicit AidlDeathRecipient(std::weak_ptr<VelaComposerClient> owner);

        static void onBinderDied(void* cookie);

        const std::weak_ptr<VelaComposerClient> owner;
    };

    std::shared_ptr<IVelaComposerCallback> currentCallback() EXCLUDES(mLock);
    /** Ends the death link of the callback, which stays. */
    void unlinkCallback() REQUIRES(mLock);

    lmfg::VelaService* mService = nullptr;
    std::mutex mLock;
    std::shared_ptr<IVelaComposerCallback> mCallback GUARDED_BY(mLock);
    const int32_t mLogMask = lmfg::support::kLogRegistration;
    lmfg::support::DeathLink::Held<AidlDeathRecipient> mDeathRecipient GUARDED_BY(mLock);
};

}  // namespace aidl::vendor::lumenforge::hardware::display
