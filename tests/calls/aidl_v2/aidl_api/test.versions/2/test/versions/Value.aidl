// A frozen version. Its users have been built with it: it never changes.
package test.versions;
union Value {
    int number;
    String text;
    double real;
}
