// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub.signals;
@VintfStability parcelable UserEngagementPayload {
    float overall_confidence;
    vendor.quorin.velmora_hub.signals.EngagementRegion[] regions;
    int display;
}
