package vendor.lumenforge.hardware.display;

/**
 * Implemented by clients that want to know of feature changes.
 */
@VintfStability
interface IVelaCallback {
    /** A feature of the chip changed; the meaning of the values depends on the feature. */
    void onFeatureChanged(in int feature, in int[] values);
}
