package vendor.lumenforge.hardware.display;

/**
 * Implemented by software processing clients. Of those registered, the one with the lowest
 * identifier is asked. Both operations hold up a thread of the service library until they return.
 */
@VintfStability
interface ISoftVelaClient {
    /**
     * Passes a configuration to the client.
     *
     * @param id as the service library gave it, whichever client is asked.
     * @return handed to the service library; -1 if the call fails.
     */
    int setConfig(in long id, in int config, in int[] values);

    /**
     * Asks the client for a configuration.
     *
     * The service library is told a status beside the values: the code of a service-specific error,
     * 0 otherwise.
     *
     * @param id as the service library gave it, whichever client is asked.
     */
    int[] getConfig(in long id, in int config, in int[] values);
}
