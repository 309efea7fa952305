// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub.signals;
@VintfStability @Backing(type="int") enum EvidenceType {
    UNKNOWN = 0,
    PRESENCE = 1,
    TOUCH_GESTURE = 2,
}
