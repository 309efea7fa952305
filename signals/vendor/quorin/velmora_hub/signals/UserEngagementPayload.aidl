package vendor.quorin.velmora_hub.signals;

import vendor.quorin.velmora_hub.signals.EngagementRegion;

/** The payload of signal 2: where and how the user engages with the touch panels. */
@VintfStability
parcelable UserEngagementPayload {
    /** From 0 to 1. */
    float overall_confidence;
    EngagementRegion[] regions;
    /** 1 for the primary panel's display, 2 for the secondary one's, 0 for any other. */
    int display;
}
