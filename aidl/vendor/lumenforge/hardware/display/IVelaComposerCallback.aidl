package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.ContentSamples;

/**
 * Implemented by a compositor. onConfigChanged and onContentSamplingRequested hold up a thread of
 * the service library until they return; the other two do not.
 */
@VintfStability
interface IVelaComposerCallback {
    /** The configuration of a display changed; the answer goes to the service library. */
    int[] onConfigChanged(in long display, in int config, in int[] values);

    /** A refresh of a display is requested. */
    oneway void onRefreshRequested(in long display);

    /** The power mode of a display changed. */
    oneway void onDisplayPowerChanged(in long display, in int mode);

    /** Samples of a display's content are requested; they go to the service library. */
    ContentSamples onContentSamplingRequested(in long display, in int value1, in long value2);
}
