package vendor.lumenforge.hardware.display;

/**
 * Implemented by clients that want to know of feature changes.
 */
@VintfStability
interface IVelaCallback {
    /** A feature changed. What feature and values mean is the service library's. */
    void onFeatureChanged(in int feature, in int[] values);
}
