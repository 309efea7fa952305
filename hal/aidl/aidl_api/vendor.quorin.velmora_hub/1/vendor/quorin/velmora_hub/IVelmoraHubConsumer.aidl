// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub;
@VintfStability interface IVelmoraHubConsumer {
    @Backing(type="int") enum SignalError {
        UNKNOWN = 0,
        SOURCE_FAILED = 1,
        REPLACED = 2,
        UNREGISTERED = 3,
    }
    oneway void onSignalAvailable(in int signalId);
    oneway void onSignalUpdate(in vendor.quorin.velmora_hub.VelmoraEvent event);
    oneway void onSignalUnavailable(in int signalId, in vendor.quorin.velmora_hub.IVelmoraHubConsumer.SignalError error);
}
