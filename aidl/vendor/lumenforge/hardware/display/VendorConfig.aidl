package vendor.lumenforge.hardware.display;

/**
 * Configuration types that clients name. The chip knows more; any value is passed on to it.
 */
@VintfStability
@Backing(type="int")
enum VendorConfig {
    /** A batch of this type survives start-up: it is kept until the chip is there. */
    STARTUP_BATCH = 1024,
}
