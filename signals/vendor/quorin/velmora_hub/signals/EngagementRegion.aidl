package vendor.quorin.velmora_hub.signals;

import vendor.quorin.velmora_hub.signals.Evidence;
import vendor.quorin.velmora_hub.signals.NormalizedRect;

/** A part of a display that the user engages with, and what speaks for it. */
@VintfStability
parcelable EngagementRegion {
    /** Null if the place is not known. */
    @nullable NormalizedRect[] rects;
    /** From 0 to 1. */
    float confidence;
    Evidence[] evidence;
}
