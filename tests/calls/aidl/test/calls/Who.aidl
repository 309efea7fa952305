package test.calls;

/** Who served a call, and for whom. */
parcelable Who {
    int pid;
    int callingPid;
    int callingUid;
}
