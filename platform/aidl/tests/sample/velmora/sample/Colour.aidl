package velmora.sample;

/** Backed by a byte. */
@Backing(type="byte")
enum Colour {
    /** The first. */
    RED,
    GREEN = 4,
    BLUE,
    /** Another name of BLUE. */
    AZURE = BLUE,
    DARK = -1 - 2 * 3,
}
