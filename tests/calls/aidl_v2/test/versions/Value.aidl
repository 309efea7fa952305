package test.versions;

/** One of several kinds. */
union Value {
    int number;
    String text;
    double real;
}
