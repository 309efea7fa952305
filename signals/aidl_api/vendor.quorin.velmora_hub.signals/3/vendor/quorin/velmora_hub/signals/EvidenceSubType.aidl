// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub.signals;
@VintfStability union EvidenceSubType {
    vendor.quorin.velmora_hub.signals.TouchGestureKind touch_gesture = vendor.quorin.velmora_hub.signals.TouchGestureKind.UNKNOWN;
}
