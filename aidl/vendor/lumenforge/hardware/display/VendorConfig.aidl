package vendor.lumenforge.hardware.display;

/**
 * Configuration types. Any value, named here or not, is passed on to the service library.
 */
@VintfStability
@Backing(type="int")
enum VendorConfig {
    /** A batch that survives start-up: IVela keeps it while the service library is absent. */
    STARTUP_BATCH = 1024,
}
