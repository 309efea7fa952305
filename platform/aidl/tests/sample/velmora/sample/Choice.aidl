package velmora.sample;

import velmora.sample.Inner;

/** One of several. */
union Choice {
    /** A number; what a new one holds. */
    int number = 3;
    /** A text. */
    String text;
    byte[] bytes;
    @nullable Inner inner;
}
