package vendor.lumenforge.hardware.display;

/**
 * A rectangle of floating-point numbers.
 */
@VintfStability
parcelable LayerRect {
    float left;
    float top;
    float right;
    float bottom;
}
