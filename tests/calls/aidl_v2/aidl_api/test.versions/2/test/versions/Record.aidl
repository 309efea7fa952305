// A frozen version. Its users have been built with it: it never changes.
package test.versions;
parcelable Record {
    int number = 1;
    String text = "text";
    long more = 7;
    @nullable String note;
    String[] labels = {"a", "b"};
    test.versions.Setting setting = test.versions.Setting.QUIET;
}
