package example.greeter;

/** What the greeter says to somebody. */
parcelable Greeting {
    /** Who is greeted. */
    String name;
    /** What is said. */
    String text;
    /** How many greetings this greeter has given so far, this one included. */
    int count;
}
