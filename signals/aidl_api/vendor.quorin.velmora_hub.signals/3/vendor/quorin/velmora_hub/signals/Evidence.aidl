// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub.signals;
@VintfStability parcelable Evidence {
    vendor.quorin.velmora_hub.signals.EvidenceType type = vendor.quorin.velmora_hub.signals.EvidenceType.UNKNOWN;
    float weight;
    vendor.quorin.velmora_hub.signals.EvidenceSubType sub_type;
}
