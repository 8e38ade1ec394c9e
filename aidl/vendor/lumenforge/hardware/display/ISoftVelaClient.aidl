package vendor.lumenforge.hardware.display;

/**
 * Implemented by software processing clients. Both operations hold up the chip's thread until they
 * return.
 */
@VintfStability
interface ISoftVelaClient {
    /**
     * Applies a configuration.
     *
     * @param id the client that the chip means, which need not be the one that is asked.
     * @return the chip's result code.
     */
    int setConfig(in long id, in int config, in int[] values);

    /**
     * Reads a configuration. A service-specific error is handed to the chip as its status.
     *
     * @param id the client that the chip means, which need not be the one that is asked.
     */
    int[] getConfig(in long id, in int config, in int[] values);
}
