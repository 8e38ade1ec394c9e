package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.ContentSamples;

/**
 * Implemented by a compositor. The chip waits for the answers of onConfigChanged and
 * onContentSamplingRequested; the other two do not hold it up.
 */
@VintfStability
interface IVelaComposerCallback {
    /** The configuration of a display changed; the answer goes back to the chip. */
    int[] onConfigChanged(in long display, in int config, in int[] values);

    /** The chip wants the display to be composed again. */
    oneway void onRefreshRequested(in long display);

    /** The power mode of a display changed. */
    oneway void onDisplayPowerChanged(in long display, in int mode);

    /** The chip asks for samples of a display's content. */
    ContentSamples onContentSamplingRequested(in long display, in int value1, in long value2);
}
