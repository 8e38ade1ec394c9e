package vendor.lumenforge.hardware.display;

/**
 * What the chip was built with. value16 to value24 stay zero on chips of the first service
 * library generation.
 */
@VintfStability
parcelable VelaFixedConfig {
    int value1;
    int[] list1;
    int value2;
    int value3;
    int value4;
    int value5;
    int value6;
    int value7;
    int value8;
    int value9;
    int value10;
    int value11;
    int value12;
    int value13;
    int value14;
    int value15;
    int value16;
    int value17;
    int value18;
    int value19;
    int value20;
    int value21;
    int value22;
    int value23;
    int value24;
    int[] list2;
}
