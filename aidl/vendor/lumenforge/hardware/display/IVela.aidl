package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.BufferInfo;
import vendor.lumenforge.hardware.display.DisplayConfigVariableInfo;
import vendor.lumenforge.hardware.display.HwcRect;
import vendor.lumenforge.hardware.display.ISoftVelaClient;
import vendor.lumenforge.hardware.display.IVelaCallback;
import vendor.lumenforge.hardware.display.IVelaComposerClient;
import vendor.lumenforge.hardware.display.LayerStack;
import vendor.lumenforge.hardware.display.LutData;
import vendor.lumenforge.hardware.display.VelaFixedConfig;

/**
 * The main service of the display co-processor.
 *
 * Service-specific error codes: -1, the service library is absent; -2, the operation is served only
 * by a composer client; any negative code may be the service library's own. Registrations,
 * initialize and createComposerClient report the library's absence by STATUS_UNKNOWN_ERROR instead.
 */
@VintfStability
interface IVela {
    /** Writes configuration values; returns the result code, which is no error if negative. */
    int velaConfigureSet(in int type, in int[] values);

    /** Reads configuration values. */
    int[] velaConfigureGet(in int type, in int[] params);

    /**
     * Passes on a batch of configuration and returns the reply. Fails without the service library,
     * but a batch of VendorConfig.STARTUP_BATCH is kept.
     */
    String velaConfigureBatch(in int type, in String request);

    /**
     * Hands a buffer to the service library, which may use it until this returns; returns the
     * result code, which is no error if negative.
     */
    int velaConfigureBuffer(in int type, in long param, in ParcelFileDescriptor fd, in int size);

    /** Registers a callback under an identifier, replacing an earlier one; null unregisters. */
    void registerCallback(in long id, in @nullable IVelaCallback callback);

    /** Registers a soft client under an identifier, replacing an earlier one; null unregisters. */
    void registerSoftVelaClient(in long id, in @nullable ISoftVelaClient client);

    /** Starts the service library with value4 (its low 32 bits), value1 and value2. */
    void initialize(in DisplayConfigVariableInfo info);

    /** Reads or writes the panel. Of second, third and sixth only the low eight bits are used. */
    byte[] panelReadWrite(in boolean first, in int second, in int third, in boolean fourth,
            in byte[] data, in int sixth);

    /** Makes a composer client. The most recently made one receives the composer events. */
    IVelaComposerClient createComposerClient();

    // Served by a composer client only; here each fails with -2.

    void buildLayerStack(in long display, in LayerStack stack);
    void changeLayerType(in long layer, in long type);
    int commitLayerStack(in long display, in int flags);
    int configureVelaMaxcll(in int value);
    void createLayer(in long display, in long layer);
    void destroyLayer(in long display, in long layer);
    void enableSecondaryDisplay(in boolean enable);
    VelaFixedConfig getCurrentConfig(in long display);
    String getDumpString(in long display);
    LutData getLayerToneMappingLut(in long layer, in int table);
    int getOsdStatus(in int which);
    int handleDisplayEvent(in long display, in int event, in int value);
    int present(in long display);
    int presentDisplay(in long display);
    void reportDualChannelStatus(in int status);
    void setActiveConfig(in long display, in DisplayConfigVariableInfo config);
    void setClientTarget(in long display, in int target);
    int setColorModeWithRenderIntent(in long display, in int mode, in int intent);
    void setDisplayConnected(in long display, in boolean connected);
    void setLayerBuffer(in long display, in long layer, in BufferInfo buffer);
    void setLayerCompositionType(in long display, in long layer, in int type);
    void setLayerDisplayFrame(in long display, in long layer, in HwcRect frame);
    void setLayerProperty(in long display, in int property, in long value);
    void setLayerSetEmpty(in long display, in boolean empty);
    void setLayerSourceCrop(in long display, in long layer, in HwcRect crop);
    void setLayerTransform(in long display, in long layer, in int transform);
    void setLayerZOrder(in long display, in long layer, in int z);
    int setOsdAutoRefresh(in int enable);
    int setPowerMode(in long display, in int mode, in boolean first, in boolean second);
    int[] updateDisplayBrightness(in long display, in int brightness, in int[] values);
    int setColorTransform(in float[] matrix);
    void configureVelaHdrMode(in int mode);
}
