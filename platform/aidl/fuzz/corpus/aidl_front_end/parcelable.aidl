package p;


/**
 * A field of each type.
 *
 *   Indented, with "quotes", a // and a /* in it.
 */
parcelable T {
    /** Named 64-bit patterns. */
    @Backing(type="long")
    enum Wide {
        LOW = -9223372036854775807 - 1,
        HIGH = 0x7fffffffffffffff,
    }
    /** Uses a type that is declared after it. */
    parcelable Pair {
        Part left;
        @nullable Part right;
    }
    parcelable Part {
        int weight = LIMIT / 2;
    }

    const int LIMIT = 1 << 4 | 2;
    const long FAR = -9223372036854775807 - 1;
    const String GREETING = "what" + "??/";
    const char LETTER = 'q';
    const boolean READY = LIMIT > 3 && true;
    const float HALF = 0.5f;

    boolean flag = true;
    byte small = -128;
    char letter = 'x';
    int whole = LIMIT + 1;
    long big = 0x100000000;
    float real = 0.1f;
    double exact = -1e-3;
    String text = GREETING;
    E colour = E.A;
    Wide wide = Wide.LOW;
    Pair pair;
    @nullable String maybeText;

    boolean[] flags;
    byte[] bytes = {1, -1};
    char[] letters;
    int[] wholes = {1, 2, 3};
    long[] bigs;
    float[] reals;
    double[] exacts;
    String[] texts = {"a", "b"};
    E[] colours = {E.A, E.B};
    Wide[] wides;
    @nullable int[] maybeWholes;
    @nullable String[] maybeTexts;
}
