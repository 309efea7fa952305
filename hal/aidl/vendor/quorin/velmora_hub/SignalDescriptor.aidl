package vendor.quorin.velmora_hub;

/** What a producer declares about the signal that it registers. */
@VintfStability
parcelable SignalDescriptor {
    /** The signal being registered. At most one producer is registered for an id at a time. */
    int signalId;
    /** Free-form labels. They are kept with the registration; nobody reads them yet. */
    String[] tags;
    /** For how many milliseconds an event of the signal is worth using; 0 if that is not limited. */
    long ttlMs;
}
