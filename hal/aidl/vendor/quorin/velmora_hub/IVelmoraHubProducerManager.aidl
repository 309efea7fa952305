package vendor.quorin.velmora_hub;

import vendor.quorin.velmora_hub.IToken;
import vendor.quorin.velmora_hub.IVelmoraHubProducer;
import vendor.quorin.velmora_hub.SignalDescriptor;
import vendor.quorin.velmora_hub.VelmoraEvent;

/** The hub as producers of signals see it. */
@VintfStability
interface IVelmoraHubProducerManager {
    /**
     * Makes the producer the only source of a signal, until it unregisters or its process dies.
     *
     * @param descriptor the signal
     * @param producer called when the demand for the signal changes
     * @return the handle of the registration
     * @throws EX_ILLEGAL_STATE if the signal has a producer already
     */
    IToken registerProducer(in SignalDescriptor descriptor, IVelmoraHubProducer producer);

    /**
     * Hands an event to all consumers of the token's signal. Returns before they are called; an
     * event may be lost if the hub is overloaded.
     *
     * @param token what registerProducer returned
     * @param event what happened
     * @throws EX_ILLEGAL_ARGUMENT if the token is not one of this manager
     */
    void updateSignal(IToken token, in VelmoraEvent event);

    /**
     * Ends the registration of the token's signal, whoever holds it by now, and tells the signal's
     * consumers; they are told, too, if there is none.
     *
     * @param token what registerProducer returned
     * @throws EX_ILLEGAL_ARGUMENT if the token is not one of this manager
     */
    void unregisterProducer(IToken token);
}
