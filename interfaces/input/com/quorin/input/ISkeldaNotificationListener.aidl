package com.quorin.input;

import com.quorin.input.SkeldaNotificationMsg;

/** Hears of what happens on a panel. The service waits for each call to return. */
@VintfStability
interface ISkeldaNotificationListener {
    void onNotificationReceived(in SkeldaNotificationMsg msg);

    /** True if the listener has dealt with the notification, so that nobody else need be asked. */
    boolean onHandleNotification(in SkeldaNotificationMsg msg);
}
