package vendor.quorin.velmora_hub.signals;

/** What kind of source an observation comes from. */
@VintfStability
@Backing(type="int")
enum EvidenceType {
    UNKNOWN = 0,
    PRESENCE = 1,
    TOUCH_GESTURE = 2,
}
