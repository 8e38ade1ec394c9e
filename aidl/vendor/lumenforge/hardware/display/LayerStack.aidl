package vendor.lumenforge.hardware.display;

import vendor.lumenforge.hardware.display.Layer;

/**
 * The layers of a display.
 */
@VintfStability
parcelable LayerStack {
    Layer[] layers;
    int value1;
    int[] list1;
}
