package com.quorin.input;

/**
 * The content of a notification. One with a member that is not declared here cannot be read: the
 * call that carries it fails at the service, and the listener does not hear of it.
 */
@VintfStability
union SkeldaNotification {
    /** Whether an ear or a cheek lies on the panel. */
    byte earCheek;
    /** Not used here: holds the place of a member that only other listeners read. */
    int unusedHere;
    /** One serialized touch_gesture.TouchGesturePacket. */
    byte[] touchGesturePacket;
}
