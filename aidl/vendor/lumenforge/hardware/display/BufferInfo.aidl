package vendor.lumenforge.hardware.display;

/**
 * Describes a buffer of a layer. value7 and value8 do not reach the service library.
 */
@VintfStability
parcelable BufferInfo {
    long value1;
    int value2;
    int value3;
    int value4;
    int value5;
    int value6;
    int value7;
    int value8;
    float real1;
    int value9;
    int value10;
    long value11;
    int[] list1;
}
