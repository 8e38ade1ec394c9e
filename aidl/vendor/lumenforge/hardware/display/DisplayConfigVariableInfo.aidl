package vendor.lumenforge.hardware.display;

/**
 * A display configuration. Flags are bytes: every value survives.
 *
 * Of value4 only the low 32 bits reach the service library; value5 does not reach it.
 */
@VintfStability
parcelable DisplayConfigVariableInfo {
    byte flag1;
    int value1;
    int value2;
    float real1;
    float real2;
    int value3;
    long value4;
    byte flag2;
    byte flag3;
    int value5;
    int[] list1;
}
