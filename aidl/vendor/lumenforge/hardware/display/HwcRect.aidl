package vendor.lumenforge.hardware.display;

/**
 * Rectangle in whole pixels; right and bottom are exclusive.
 */
@VintfStability
parcelable HwcRect {
    int left;
    int top;
    int right;
    int bottom;
}
