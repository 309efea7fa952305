// A frozen version. Its users have been built with it: it never changes.
package com.quorin.input;
@VintfStability union SkeldaNotification {
    byte earCheek;
    int unusedHere;
    byte[] touchGesturePacket;
}
