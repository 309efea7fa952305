package vendor.quorin.velmora_hub;

import vendor.quorin.velmora_hub.VelmoraEvent;

/**
 * What a consumer lets the hub tell it. All calls are oneway: the hub waits for no consumer, and
 * they arrive in the order in which they were made.
 */
@VintfStability
oneway interface IVelmoraHubConsumer {
    /** Why a signal became unavailable. */
    @Backing(type="int")
    enum SignalError {
        /** For a reason that has no value here. */
        UNKNOWN = 0,
        /** Its producer is there, but what the signal is taken from has failed. */
        SOURCE_FAILED = 1,
        /** Its producer has been replaced by another one. */
        REPLACED = 2,
        /** Its producer has unregistered or its process has died. */
        UNREGISTERED = 3,
    }

    /**
     * A producer has registered the signal. Not called at subscription for one that is there
     * already.
     *
     * @param signalId the signal
     */
    void onSignalAvailable(int signalId);

    /**
     * The producer of a subscribed signal has pushed an event.
     *
     * @param event what happened
     */
    void onSignalUpdate(in VelmoraEvent event);

    /**
     * The signal has no producer any more. The subscription stays.
     *
     * @param signalId the signal
     * @param error why
     */
    void onSignalUnavailable(int signalId, SignalError error);
}
