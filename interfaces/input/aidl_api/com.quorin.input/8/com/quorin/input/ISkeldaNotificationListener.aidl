// A frozen version. Its users have been built with it: it never changes.
package com.quorin.input;
@VintfStability interface ISkeldaNotificationListener {
    void onNotificationReceived(in com.quorin.input.SkeldaNotificationMsg msg);
    boolean onHandleNotification(in com.quorin.input.SkeldaNotificationMsg msg);
}
