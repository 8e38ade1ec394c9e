package vendor.lumenforge.hardware.display;

/**
 * Colour metadata of a layer's buffer. Flags are bytes: every value survives.
 */
@VintfStability
parcelable ColorMetaData {
    int value1;
    int value2;
    int value3;
    byte flag1;
    int value4;
    int value5;
    byte flag2;
    int value6;
    byte[] list1;
}
