package vendor.quorin.velmora_hub.signals;

/**
 * A rectangle in parts of the display's width and height, from its upper left corner. A point has
 * equal sides. Not checked: a producer passes on what its source reports.
 */
@VintfStability
parcelable NormalizedRect {
    float left;
    float top;
    float right;
    float bottom;
}
