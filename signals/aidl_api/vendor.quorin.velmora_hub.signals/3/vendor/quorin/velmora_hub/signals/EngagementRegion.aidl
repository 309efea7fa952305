// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub.signals;
@VintfStability parcelable EngagementRegion {
    @nullable vendor.quorin.velmora_hub.signals.NormalizedRect[] rects;
    float confidence;
    vendor.quorin.velmora_hub.signals.Evidence[] evidence;
}
