package velmora.sample;

/** What Inner could be in a later version. */
parcelable InnerNext {
    int number = 7;
    String name = "inner";
    long[] more = {1, 2};
}
