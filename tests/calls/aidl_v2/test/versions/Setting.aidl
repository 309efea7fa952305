package test.versions;

/** How a text is kept. */
@Backing(type="int")
enum Setting {
    PLAIN,
    LOUD,
    QUIET,
}
