// A frozen version. Its users have been built with it: it never changes.
package com.quorin.input;
@VintfStability parcelable SkeldaNotificationMsg {
    com.quorin.input.PanelID panelId;
    com.quorin.input.SkeldaNotification notification;
}
