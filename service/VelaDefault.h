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
 * The main service: registry of clients, fan-out of the library's events, and the requests of
 * IVela.
 *
 * Made by ndk::SharedRefBase::make only. Without the service library it is degraded: requests and
 * registrations fail, as each one says, and events never arrive.
 *
 * Threads. Requests run on binder threads, events on the library's own, death notifications on the
 * platform's, all of them concurrently. mService and mLogMask are written by the constructor and
 * the destructor only and are read without a lock; mPendingBatches has none.
 *
 * mLock guards the clients and their death records. It is held while a client is replaced or
 * forgotten, unlinking and linking included, and while a new composer client registers its closures
 * with the library, so that two do not at once. It is never held while a client is called, nor
 * while the library serves a request: events copy the owners that they need and let go of it first.
 *
 * Death. Each registration holds one death record. A notification of a record whose registration
 * has let go only writes its line: it removes no later client. One whose service is going does
 * nothing.
 */
class VelaDefault : public BnVela {
    struct AidlDeathRecipient;

  public:
    /** Brings the library up and registers for its feature and soft-client events. */
    VelaDefault();

    /** Withdraws everything registered with the library and unlinks every client. */
    ~VelaDefault() override;

    /** Unknown error without the library; what the library answers is not examined. */
    ndk::ScopedAStatus initialize(const DisplayConfigVariableInfo& info) override;

    /**
     * Replaces what is registered under the identifier; null removes it. Unknown error without the
     * library. Whether a client can be linked does not matter.
     */
    ndk::ScopedAStatus registerCallback(int64_t id,
                                        const std::shared_ptr<IVelaCallback>& callback) override;
    ndk::ScopedAStatus registerSoftVelaClient(
            int64_t id, const std::shared_ptr<ISoftVelaClient>& client) override;

    /**
     * Forgets whichever client of this kind (1 callback, 2 soft client) has the identifier. With
     * the record that a notification is of, only if its registration has not let go.
     */
    void handleAidlDeath(int32_t kind, int64_t id, const AidlDeathRecipient* notified = nullptr)
            EXCLUDES(mLock);

    // Events, called by the library's closures.

    /** Tells every callback, in ascending identifier order. */
    void onFeatureChanged(int32_t feature, const std::vector<int32_t>& values);

    /**
     * What the soft client with the lowest identifier left in a result that starts at -1, whatever
     * its status; -1 if there is no client.
     */
    int32_t onSoftVelaSetConfig(int64_t id, int32_t config, const std::vector<int32_t>& values);

    /**
     * Lets the soft client with the lowest identifier fill `out`. Returns the client's
     * service-specific error, 0 for any other status, or -1 without touching `out` if there is no
     * client.
     */
    int32_t onSoftVelaGetConfig(int64_t id, int32_t config, const std::vector<int32_t>& values,
                                std::vector<int32_t>& out);

    // Requests that the library answers with a result code: ok whatever it is, -1 without the
    // library.

    ndk::ScopedAStatus velaConfigureSet(int32_t type, const std::vector<int32_t>& values,
                                        int32_t* out) override;
    /** With the library, the descriptor number that `fd` holds is closed on return. */
    ndk::ScopedAStatus velaConfigureBuffer(int32_t type, int64_t param,
                                           const ndk::ScopedFileDescriptor& fd, int32_t size,
                                           int32_t* out) override;

    // Requests that the library answers with a status and a value. They fail with a status that is
    // negative, with -1 if the library does not answer or is absent; then `out` is untouched.

    ndk::ScopedAStatus velaConfigureGet(int32_t type, const std::vector<int32_t>& params,
                                        std::vector<int32_t>* out) override;
    ndk::ScopedAStatus velaConfigureBatch(int32_t type, const std::string& request,
                                          std::string* out) override;
    ndk::ScopedAStatus panelReadWrite(bool first, int32_t second, int32_t third, bool fourth,
                                      const std::vector<uint8_t>& data, int32_t sixth,
                                      std::vector<uint8_t>* out) override;

    // Clients and diagnostics.

    /** Unknown error, and an empty `out`, without the library. */
    ndk::ScopedAStatus createComposerClient(std::shared_ptr<IVelaComposerClient>* out) override;

    /** Writes the library's text about display 0 to `fd`. Always ok; `args` is ignored. */
    binder_status_t dump(int fd, const char** args, uint32_t argCount) override;

    // What composer clients only serve: service-specific error -2. The library is not asked, and
    // `out` is reset.

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
    /** The death link of one registration. */
    struct AidlDeathRecipient : lmfg::support::DeathLink {
        AidlDeathRecipient(std::weak_ptr<VelaDefault> owner, int32_t kind, int64_t id);

        static void onBinderDied(void* cookie);

        const std::weak_ptr<VelaDefault> owner;
        const int32_t kind;
        const int64_t id;
    };

    /** The type of batch that survives start-up: it is kept where the library is absent. */
    static constexpr int32_t kStartupBatch = 1024;

    template <typename Client>
    using Clients = std::map<int64_t, std::shared_ptr<Client>>;
    using DeathRecipients = std::map<int64_t, lmfg::support::DeathLink::Held<AidlDeathRecipient>>;

    static void unlink(int64_t id, const std::shared_ptr<ndk::ICInterface>& client,
                       const DeathRecipients& recipients);

    /** Registers `client` under `id`, or forgets who is there if it is null. */
    template <typename Client>
    void replace(int32_t kind, int64_t id, const std::shared_ptr<Client>& client,
                 Clients<Client>& clients, DeathRecipients& recipients) REQUIRES(mLock);

    template <typename Client>
    void forget(int64_t id, Clients<Client>& clients, DeathRecipients& recipients) REQUIRES(mLock);

    std::shared_ptr<ISoftVelaClient> firstSoftClient() EXCLUDES(mLock);

    lmfg::VelaService* mService;  // not owned
    uint32_t mLogMask;
    std::mutex mLock;
    Clients<IVelaCallback> mCallbacks GUARDED_BY(mLock);
    Clients<ISoftVelaClient> mSoftClients GUARDED_BY(mLock);
    /** Batches that came without a library; not guarded. */
    std::vector<::android::hardware::hidl_string> mPendingBatches;
    DeathRecipients mCallbackDeathRecipients GUARDED_BY(mLock);
    DeathRecipients mSoftClientDeathRecipients GUARDED_BY(mLock);
};

}  // namespace aidl::vendor::lumenforge::hardware::display
