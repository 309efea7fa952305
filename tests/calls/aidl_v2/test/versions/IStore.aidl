package test.versions;

import test.versions.Record;
import test.versions.Setting;
import test.versions.Value;

/** Keeps what it is given. */
interface IStore {
    void put(in Record[] records, String mark);
    Record[] records();
    /** What is kept, as its process sees it. */
    String describe();
    Setting echoSetting(Setting setting);
    Value echoValue(in Value value);
    int count();
}
