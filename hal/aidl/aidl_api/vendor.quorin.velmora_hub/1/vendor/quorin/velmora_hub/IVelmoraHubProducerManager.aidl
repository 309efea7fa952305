// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub;
@VintfStability interface IVelmoraHubProducerManager {
    vendor.quorin.velmora_hub.IToken registerProducer(in vendor.quorin.velmora_hub.SignalDescriptor descriptor, in vendor.quorin.velmora_hub.IVelmoraHubProducer producer);
    void updateSignal(in vendor.quorin.velmora_hub.IToken token, in vendor.quorin.velmora_hub.VelmoraEvent event);
    void unregisterProducer(in vendor.quorin.velmora_hub.IToken token);
}
