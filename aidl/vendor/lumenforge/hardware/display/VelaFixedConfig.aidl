package vendor.lumenforge.hardware.display;

/**
 * The configuration that getCurrentConfig answers. value16 to value24 stay zero: the service
 * library's answer has no counterpart of them.
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
