// A frozen version. Its users have been built with it: it never changes.
package test.versions;
parcelable Record {
    int number = 1;
    String text = "text";
}
