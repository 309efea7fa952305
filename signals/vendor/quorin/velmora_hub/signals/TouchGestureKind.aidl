package vendor.quorin.velmora_hub.signals;

/** A gesture on a touch panel. */
@VintfStability
@Backing(type="int")
enum TouchGestureKind {
    /** None, or one that is not known. */
    UNKNOWN = 0,
    TOUCH_DOWN = 1,
    SINGLE_TAP = 2,
    DOUBLE_TAP = 3,
    LONG_PRESS = 4,
    SCROLL_UP = 5,
    SCROLL_DOWN = 6,
    SCROLL_LEFT = 7,
    SCROLL_RIGHT = 8,
    ZOOM_IN = 9,
    ZOOM_OUT = 10,
}
