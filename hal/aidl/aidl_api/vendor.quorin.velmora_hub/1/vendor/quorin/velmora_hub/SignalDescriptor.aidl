// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub;
@VintfStability parcelable SignalDescriptor {
    int signalId;
    String[] tags;
    long ttlMs;
}
