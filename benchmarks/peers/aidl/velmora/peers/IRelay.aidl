package velmora.peers;

import vendor.quorin.velmora_hub.IVelmoraHubConsumer;
import vendor.quorin.velmora_hub.VelmoraEvent;

/** The least that stands between a producer and its consumers: no signals, no tokens, no deaths. */
interface IRelay {
    /** Lets the consumer have every event from now on, for ever. */
    void add(IVelmoraHubConsumer consumer);

    /** Returns when the event is queued; the consumers are called later, on another thread. */
    void push(in VelmoraEvent event);
}
