package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.BufferInfo;
import vendor.lumenforge.hardware.display.ColorMetaData;

/**
 * A layer's buffer with its colour metadata. It carries no descriptor.
 */
@VintfStability
parcelable LayerBuffer {
    int value1;
    int value2;
    int value3;
    int value4;
    ColorMetaData colorMetaData;
    int value5;
    int value6;
    int value7;
    BufferInfo bufferInfo;
}
