// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub;
@VintfStability interface IVelmoraHubProducer {
    oneway void onClientsUpdated(in boolean hasClients);
    oneway void nudge();
}
