package velmora.benchmark;

/** Moves bytes that mean nothing, so that only the way there and back costs anything. */
interface IPayload {
    /** Gives back what it got. */
    byte[] echo(in byte[] data);

    /** Counts its calls. */
    oneway void take(in byte[] data);
}
