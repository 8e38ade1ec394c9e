package vendor.lumenforge.hardware.display;

/**
 * Rectangle in fractions of a pixel; right and bottom are exclusive.
 */
@VintfStability
parcelable LayerRect {
    float left;
    float top;
    float right;
    float bottom;
}
