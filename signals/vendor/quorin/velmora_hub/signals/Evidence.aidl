package vendor.quorin.velmora_hub.signals;

import vendor.quorin.velmora_hub.signals.EvidenceSubType;
import vendor.quorin.velmora_hub.signals.EvidenceType;

/** One observation that speaks for an engagement. */
@VintfStability
parcelable Evidence {
    EvidenceType type = EvidenceType.UNKNOWN;
    /** From 0 to 1. */
    float weight;
    EvidenceSubType sub_type;
}
