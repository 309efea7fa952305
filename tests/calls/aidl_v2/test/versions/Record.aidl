package test.versions;

import test.versions.Setting;

/** Grows with every version. */
parcelable Record {
    int number = 1;
    String text = "text";
    long more = 7;
    @nullable String note;
    String[] labels = {"a", "b"};
    Setting setting = Setting.QUIET;
}
