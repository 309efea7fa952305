package test.versions;

/** Grows with every version. */
parcelable Record {
    int number = 1;
    String text = "text";
}
