package velahost;

/**
 * What a host on a PC offers beside the service itself, under its descriptor and "/default".
 */
@VintfStability
interface IHost {
    /** Returns when the events that the chip has raised are answered, after at most 10 seconds. */
    void settle();

    /** The frame that the display shows, as SVG; empty when none was presented. */
    String picture(in int display);

    /** How many binder objects the host has: its own, and its clients' that it holds. */
    int liveObjects();

    /**
     * Why the chip refused requests of the calling process since it last asked, oldest first, as
     * "EINVAL: display 9 is not there".
     */
    String[] takeRefusals();
}
