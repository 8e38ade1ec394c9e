package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.LayerBuffer;
import vendor.lumenforge.hardware.display.LayerRect;
import vendor.lumenforge.hardware.display.LayerTransform;

/**
 * One layer of a stack. Of value2 only the low eight bits reach the service library.
 */
@VintfStability
parcelable Layer {
    LayerBuffer layerBuffer;
    int value1;
    LayerRect layerRect;
    LayerTransform layerTransform;
    int value2;
    int value3;
    int[] list1;
}
