package vendor.quorin.velmora_hub;

import vendor.quorin.velmora_hub.IToken;
import vendor.quorin.velmora_hub.IVelmoraHubConsumer;

/** The hub as consumers of signals see it. */
@VintfStability
interface IVelmoraHubConsumerManager {
    /**
     * Subscribes to a signal, whether it has a producer now or not, until the consumer unsubscribes
     * or its process dies.
     *
     * @param signalId the signal
     * @param consumer called for every event
     * @return the handle of the subscription
     * @throws EX_ILLEGAL_ARGUMENT if this consumer is subscribed to the signal already and lives in
     *     the hub's own process; one of another process may subscribe more than once
     */
    IToken subscribe(int signalId, IVelmoraHubConsumer consumer);

    /**
     * Ends a subscription; nothing happens if it has ended already.
     *
     * @param token what subscribe returned
     * @throws EX_ILLEGAL_ARGUMENT if the token is not one of this manager
     */
    void unsubscribe(IToken token);

    /**
     * Asks the producer of the token's signal for an update.
     *
     * @param token what subscribe returned
     * @throws EX_ILLEGAL_ARGUMENT if the token is not one of this manager
     */
    void requestSignalUpdate(IToken token);
}
