package vendor.quorin.velmora_hub;

/**
 * What a producer lets the hub tell it. All calls are oneway: the hub waits for no producer, and
 * they arrive in the order in which they were made.
 */
@VintfStability
oneway interface IVelmoraHubProducer {
    /**
     * Tells whether anybody wants the signal. Called when the first consumer subscribes and when
     * the last one leaves; not at registration, even if consumers are waiting then.
     *
     * @param hasClients true if there is a consumer
     */
    void onClientsUpdated(boolean hasClients);

    /** Asks for an update of the signal, on behalf of one of its consumers. */
    void nudge();
}
