package vendor.lumenforge.hardware.display;

/**
 * Geometry and identity of a layer's buffer.
 * 
 * value7 and value8 do not reach chips of the first service library generation.
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
