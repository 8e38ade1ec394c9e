package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.BufferInfo;
import vendor.lumenforge.hardware.display.DisplayConfigVariableInfo;
import vendor.lumenforge.hardware.display.HwcRect;
import vendor.lumenforge.hardware.display.IVelaComposerCallback;
import vendor.lumenforge.hardware.display.LayerStack;
import vendor.lumenforge.hardware.display.LutData;
import vendor.lumenforge.hardware.display.VelaFixedConfig;
import vendor.lumenforge.hardware.display.VendorConfig;

/**
 * The display operations of one compositor, made by IVela.createComposerClient.
 *
 * Service-specific error -1: the service library is absent. Any negative code may be the service
 * library's own. Operations without a result report the library's absence by STATUS_UNKNOWN_ERROR
 * instead, but for the configuration requests, setFrameBufferResolution and setPanelName; present
 * then answers 1 and updateDisplayBrightness {-1}, both with an ok status.
 */
@VintfStability
interface IVelaComposerClient {
    /** Reads configuration values when none are given, else writes them and returns the result. */
    int[] configureValues(in VendorConfig type, in int[] values);

    /** Passes on a batch of configuration and returns the reply. */
    String configureBatch(in VendorConfig type, in String request);

    /** Hands a buffer to the service library, which may use it until this returns. */
    void configureBuffer(in VendorConfig type, in long param, in ParcelFileDescriptor fd,
            in int size);

    /** Registers the compositor's callback, replacing an earlier one; null changes nothing. */
    void registerCallback(in @nullable IVelaComposerCallback callback);

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
    void setFrameBufferResolution(in long display, in int width, in int height);
    void setPanelName(in long display, in String name);
}
