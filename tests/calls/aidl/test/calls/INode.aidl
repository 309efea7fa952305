package test.calls;

import test.calls.Who;
import velmora.sample.Carrier;
import velmora.sample.Choice;
import velmora.sample.Everything;
import velmora.sample.Inner;

/** An object of one process that calls those of others as it is told. */
interface INode {
    Everything repeat(in Everything everything);
    /** Doubles the inner's number, counts up in the array, and chooses how many that were. */
    void fill(out int[] numbers, inout Inner inner, out Choice choice);
    Carrier carry(in Carrier carrier);
    @nullable IBinder echo(@nullable IBinder binder);

    Who who();
    /** What the other one's who() answers to this process. */
    Who ask(INode other);
    /** What the other one's echo() answers to this process; null makes the call fail. */
    IBinder echoBy(INode other, @nullable IBinder binder);
    /** Calls its partner, which calls this one, until the depth is 0; how many calls that were. */
    int bounce(INode partner, int depth);

    /** Keeps the node, in the place of what it kept. */
    void keep(@nullable INode node);
    @nullable INode kept();
    /** What the node kept by that one answers to this process's who(). */
    Who askKept(INode keeper);

    /** Answers that status. */
    void fail(int exception, int serviceSpecific, @nullable String message);
    /** Answers EX_TRANSACTION_FAILED for that status. */
    void failWith(int status);

    void demand(String text, in Inner inner, INode node, in INode[] nodes, IBinder binder);
    /** How often demand() was entered. */
    int demands();
}
