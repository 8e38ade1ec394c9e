package vendor.lumenforge.hardware.display;

/**
 * A tone-mapping table. Flags are bytes: every value survives.
 */
@VintfStability
parcelable LutData {
    int value1;
    int value2;
    int[] list1;
    byte flag1;
    int[] list2;
    byte flag2;
}
