package android.hardware.common;

/**
 * A native handle: descriptors and the integers that describe them.
 */
@VintfStability
parcelable NativeHandle {
    ParcelFileDescriptor[] fds;
    int[] ints;
}
