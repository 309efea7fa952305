package velmora.sample;

import velmora.sample.Choice;
import velmora.sample.Colour;
import velmora.sample.Everything;
import velmora.sample.IListener;
import velmora.sample.Inner;

/** Every way to pass something. */
interface ISample {
    const int MAX = 5;

    /** Why not. */
    @Backing(type="int")
    enum Reason {
        NONE,
        OTHER,
    }

    /**
     * Adds.
     *
     * @return the sum
     */
    int add(int left, int right);
    Everything repeat(in Everything everything);
    @nullable String repeatNullable(@nullable String text, in @nullable int[] numbers);
    Reason fill(out int[] numbers, inout Inner inner, out Choice choice, Colour colour);
    IBinder exchange(IBinder token, @nullable IListener listener, in IListener[] listeners);
    oneway void notifyLater(IListener listener, String text);
    void fail(int code);
}
