package vendor.quorin.velmora_hub;

/** One update of a signal, pushed by its producer and delivered unchanged to its consumers. */
@VintfStability
parcelable VelmoraEvent {
    /**
     * The signal that the event belongs to, as its producer says. The hub routes by the producer's
     * token, never by this field.
     */
    int signalId;
    /** When the event happened, in milliseconds since the device was started, sleep included. */
    long timestampMs;
    /** The signal's own data: a parcelable of VINTF stability whose type depends on the signal. */
    ParcelableHolder payload;
}
