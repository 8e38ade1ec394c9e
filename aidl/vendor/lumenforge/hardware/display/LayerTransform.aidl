package vendor.lumenforge.hardware.display;

/**
 * The transform of a layer. Flags are bytes: every value survives.
 */
@VintfStability
parcelable LayerTransform {
    float real1;
    byte flag1;
    byte flag2;
}
