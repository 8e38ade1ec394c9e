#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>
#include <hidl/HidlSupport.h>

#include <aidl/vendor/lumenforge/hardware/display/BnVela.h>

#include "servicelib/VelaService.h"
#include "support/DeathLink.h"

namespace aidl::vendor::lumenforge::hardware::display {

/**
 * The main service: registry of clients, fan-out of the chip's events, and the requests of IVela.
 *
 * Made by ndk::SharedRefBase::make only. Without the service library it is degraded: requests and
 * registrations fail, as each one says, and events never arrive.
 *
 * Threads. Requests run on binder threads, events on the library's own, death notifications on the
 * platform's; all of them concurrently. mLock guards the clients and their death records. It is
 * held while a client is replaced, linked and unlinked, and while a composer client registers with
 * the library, which guards nothing itself. It is never held while a client or the library is
 * called: events copy the owners they need and let go of it first.
 * mService and mLogMask are written by the constructor and the destructor only, and read without a
 * lock.
 *
 * Death. Each registration owns one death record, which lives exactly as long as its entry. A
 * notification erases the entry, and with it the record whose notification is running: it has
 * read what it needs by then. Unlinking does not wait for a running notification, so a late one
 * may come for a record that is being replaced or whose owner is going: it finds no live record
 * or an expired owner, and stops. If it has read the record already, it drops whatever is
 * registered under the identifier at that moment.
 */
class VelaDefault : public BnVela {
  public:
    /** Brings the library up, and registers with it for feature and soft-client events. */
    VelaDefault();

    /** Withdraws everything registered with the library and unlinks every client. */
    ~VelaDefault() override;

    // Lifecycle. Unknown error without the library; what the library answers is not examined.
    ndk::ScopedAStatus initialize(const DisplayConfigVariableInfo& info) override;

    // Registry. Unknown error without the library; whether a client can be linked does not matter.
    ndk::ScopedAStatus registerCallback(int64_t id,
                                        const std::shared_ptr<IVelaCallback>& callback) override;
    ndk::ScopedAStatus registerSoftVelaClient(
            int64_t id, const std::shared_ptr<ISoftVelaClient>& client) override;

    /** Forgets the client of this kind and identifier. Called by death notifications. */
    void handleAidlDeath(int32_t kind, int64_t id);

    // Events, called by the closures that the library holds.

    /** Tells every callback, in ascending order of identifiers. */
    void onFeatureChanged(int32_t feature, const std::vector<int32_t>& values);

    /** What the soft client with the lowest identifier left, -1 at first; -1 if there is none. */
    int32_t onSoftVelaSetConfig(int64_t id, int32_t config, const std::vector<int32_t>& values);

    /**
     * Lets the soft client with the lowest identifier fill `out`. Returns 0, the client's
     * service-specific error, or -1 without touching `out` if there is no client.
     */
    int32_t onSoftVelaGetConfig(int64_t id, int32_t config, const std::vector<int32_t>& values,
                                std::vector<int32_t>& out);

    // Requests. Service-specific error -1 without the library, out-parameters then untouched.
    ndk::ScopedAStatus velaConfigureSet(int32_t type, const std::vector<int32_t>& values,
                                        int32_t* out) override;
    ndk::ScopedAStatus velaConfigureGet(int32_t type, const std::vector<int32_t>& params,
                                        std::vector<int32_t>* out) override;
    ndk::ScopedAStatus velaConfigureBatch(int32_t type, const std::string& request,
                                          std::string* out) override;
    ndk::ScopedAStatus velaConfigureBuffer(int32_t type, int64_t param,
                                           const ndk::ScopedFileDescriptor& fd, int32_t size,
                                           int32_t* out) override;
    ndk::ScopedAStatus panelReadWrite(bool first, int32_t second, int32_t third, bool fourth,
                                      const std::vector<uint8_t>& data, int32_t sixth,
                                      std::vector<uint8_t>* out) override;

    /** Unknown error, and an empty `out`, without the library. */
    ndk::ScopedAStatus createComposerClient(std::shared_ptr<IVelaComposerClient>* out) override;

    /** Writes the library's text about display 0 to `fd`. Always ok; the arguments are ignored. */
    binder_status_t dump(int fd, const char** args, uint32_t argCount) override;

    // Refusals: served by composer clients only. Service-specific error -2; the library is not
    // asked, and out-parameters are reset.
    ndk::ScopedAStatus buildLayerStack(int64_t display, const LayerStack& stack) override;
    ndk::ScopedAStatus changeLayerType(int64_t layer, int64_t type) override;
    ndk::ScopedAStatus commitLayerStack(int64_t display, int32_t flags, int32_t* out) override;
    ndk::ScopedAStatus configureVelaMaxcll(int32_t value, int32_t* out) override;
    ndk::ScopedAStatus createLayer(int64_t display, int64_t layer) override;
    ndk::ScopedAStatus destroyLayer(int64_t display, int64_t layer) override;
    ndk::ScopedAStatus enableSecondaryDisplay(bool enable) override;
    ndk::ScopedAStatus getCurrentConfig(int64_t display, VelaFixedConfig* out) override;
    ndk::ScopedAStatus getDumpString(int64_t display, std::string* out) override;
    ndk::ScopedAStatus getLayerToneMappingLut(int64_t layer, int32_t table, LutData* out) override;
    ndk::ScopedAStatus getOsdStatus(int32_t which, int32_t* out) override;
    ndk::ScopedAStatus handleDisplayEvent(int64_t display, int32_t event, int32_t value,
                                          int32_t* out) override;
    ndk::ScopedAStatus present(int64_t display, int32_t* out) override;
    ndk::ScopedAStatus presentDisplay(int64_t display, int32_t* out) override;
    ndk::ScopedAStatus reportDualChannelStatus(int32_t status) override;
    ndk::ScopedAStatus setActiveConfig(int64_t display,
                                       const DisplayConfigVariableInfo& config) override;
    ndk::ScopedAStatus setClientTarget(int64_t display, int32_t target) override;
    ndk::ScopedAStatus setColorModeWithRenderIntent(int64_t display, int32_t mode, int32_t intent,
                                                    int32_t* out) override;
    ndk::ScopedAStatus setDisplayConnected(int64_t display, bool connected) override;
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
    ndk::ScopedAStatus setOsdAutoRefresh(int32_t enable, int32_t* out) override;
    ndk::ScopedAStatus setPowerMode(int64_t display, int32_t mode, bool first, bool second,
                                    int32_t* out) override;
    ndk::ScopedAStatus updateDisplayBrightness(int64_t display, int32_t brightness,
                                               const std::vector<int32_t>& values,
                                               std::vector<int32_t>* out) override;
    ndk::ScopedAStatus setColorTransform(const std::vector<float>& matrix, int32_t* out) override;
    ndk::ScopedAStatus configureVelaHdrMode(int32_t mode) override;

  private:
    friend struct VelaDefaultPeer;  // tests

    /** The death link of one registration; its address is the link's cookie. */
    struct AidlDeathRecipient {
        AidlDeathRecipient(std::weak_ptr<VelaDefault> owner, int32_t kind, int64_t id);

        static void onBinderDied(void* cookie);

        const std::weak_ptr<VelaDefault> owner;
        const ndk::ScopedAIBinder_DeathRecipient recipient;
        const int32_t kind;
        const int64_t id;
        const lmfg::support::LiveRecord live;  // last, so that it goes first
    };

    /** The one type of batch that is kept for a library that is not there yet. */
    static constexpr int32_t kStartupBatch = 1024;

    template <typename Client>
    using Clients = std::map<int64_t, std::shared_ptr<Client>>;
    using DeathRecipients = std::map<int64_t, std::unique_ptr<AidlDeathRecipient>>;

    static void unlink(const std::shared_ptr<ndk::ICInterface>& client, int64_t id,
                       const DeathRecipients& recipients);

    /** Replaces what is registered under `id`; a null client only removes it. */
    template <typename Client>
    void replace(int32_t kind, int64_t id, const std::shared_ptr<Client>& client,
                 Clients<Client>& clients, DeathRecipients& recipients) REQUIRES(mLock);

    std::shared_ptr<ISoftVelaClient> firstSoftClient();

    lmfg::VelaService* mService;  // not owned
    uint32_t mLogMask;
    std::mutex mLock;
    Clients<IVelaCallback> mCallbacks GUARDED_BY(mLock);
    Clients<ISoftVelaClient> mSoftClients GUARDED_BY(mLock);
    /** Batches that came without a library; deliberately not guarded, see velaConfigureBatch. */
    std::vector<::android::hardware::hidl_string> mPendingBatches;
    DeathRecipients mCallbackDeathRecipients GUARDED_BY(mLock);
    DeathRecipients mSoftClientDeathRecipients GUARDED_BY(mLock);
};

}  // namespace aidl::vendor::lumenforge::hardware::display
