// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub;
@VintfStability interface IVelmoraHubConsumerManager {
    vendor.quorin.velmora_hub.IToken subscribe(in int signalId, in vendor.quorin.velmora_hub.IVelmoraHubConsumer consumer);
    void unsubscribe(in vendor.quorin.velmora_hub.IToken token);
    void requestSignalUpdate(in vendor.quorin.velmora_hub.IToken token);
}
