// A frozen version. Its users have been built with it: it never changes.
package vendor.quorin.velmora_hub.signals;
@VintfStability parcelable NormalizedRect {
    float left;
    float top;
    float right;
    float bottom;
}
