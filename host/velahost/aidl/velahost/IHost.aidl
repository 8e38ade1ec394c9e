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

    /** The host ends as by SIGTERM; its names and its service manager end with it. */
    void end();

    /**
     * Begins to write a "record", "journal" or "trace" to the file, an absolute path. With a limit
     * a numbered file follows each that has reached so many bytes; 0 is none. `times` is of the
     * journal. A wrong argument is EX_ILLEGAL_ARGUMENT, a file that cannot be written
     * EX_ILLEGAL_STATE, each with a text.
     */
    void write(in String kind, in String file, in long limit, in boolean times);

    /** Adds faults, each OPERATION=WHAT[@EVERY], or none of them; refuses as write() does. */
    void fault(in String[] rules);

    /**
     * Ends a "record", "journal" or "trace", whose file is then complete, or takes all faults
     * ("fault") away; refuses as write() does.
     */
    void stop(in String kind);

    /** What is written, with its file, and which faults there are; each as one would ask for it. */
    String[] state();

    /**
     * Writes lines of a recording to the pipe, one for each request and event from now on, and the
     * client's process in each. Nothing waits for the reader: what the pipe has no room for is
     * lost, and a line {"lost": COUNT} stands in its place.
     */
    void watch(in ParcelFileDescriptor pipe);

    /**
     * Why the chip refused requests of the calling process since it last asked, oldest first, as
     * "EINVAL: display 9 is not there".
     */
    String[] takeRefusals();
}
