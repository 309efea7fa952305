package vendor.quorin.velmora_hub.signals;

import vendor.quorin.velmora_hub.signals.TouchGestureKind;

/** The observation itself. */
@VintfStability
union EvidenceSubType {
    TouchGestureKind touch_gesture = TouchGestureKind.UNKNOWN;
}
