package com.quorin.input;

/** The content of a notification. */
@VintfStability
union SkeldaNotification {
    /** Whether an ear or a cheek lies on the panel. */
    byte earCheek;
    /** Not used here: holds the place of a member that only other listeners read. */
    int unusedHere;
    /** One serialized touch_gesture.TouchGesturePacket. */
    byte[] touchGesturePacket;
}
