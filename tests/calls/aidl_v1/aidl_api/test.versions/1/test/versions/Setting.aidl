// A frozen version. Its users have been built with it: it never changes.
package test.versions;
@Backing(type="int") enum Setting {
    PLAIN = 0,
    LOUD = 1,
}
