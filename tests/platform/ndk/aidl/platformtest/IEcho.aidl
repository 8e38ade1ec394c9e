package platformtest;

/** An object that does nothing but exist. */
@VintfStability
interface IEcho {}
