package vendor.lumenforge.hardware.display;

/**
 * Configuration types that clients name. The chip knows more; any value is passed on to it.
 */
@VintfStability
@Backing(type="int")
enum VendorConfig {
    /** IVela keeps a batch of this type when there is no chip; a composer client keeps none. */
    STARTUP_BATCH = 1024,
}
