// A frozen version. Its users have been built with it: it never changes.
package test.versions;
interface IStore {
    void put(in test.versions.Record[] records, in String mark);
    test.versions.Record[] records();
    String describe();
    test.versions.Setting echoSetting(in test.versions.Setting setting);
    test.versions.Value echoValue(in test.versions.Value value);
    int count();
}
