package vendor.lumenforge.hardware.display;

/**
 * Samples of a display's content. A negative value1 means that none are delivered.
 */
@VintfStability
parcelable ContentSamples {
    int value1;
    long[] list1;
    long[] list2;
    long[] list3;
    long[] list4;
}
