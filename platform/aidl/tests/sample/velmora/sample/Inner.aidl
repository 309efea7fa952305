package velmora.sample;

/** Held by others; comparable. */
parcelable Inner {
    int number = 7;
    String name = "inner";
}
