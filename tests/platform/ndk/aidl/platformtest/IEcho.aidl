package platformtest;

/** An object that does nothing but exist. */
interface IEcho {}
