package vendor.lumenforge.hardware.display;

/**
 * A rectangle of integers.
 */
@VintfStability
parcelable HwcRect {
    int left;
    int top;
    int right;
    int bottom;
}
