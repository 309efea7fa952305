package com.quorin.input;

import com.quorin.input.PanelID;
import com.quorin.input.SkeldaNotification;

/** What a listener is told. */
@VintfStability
parcelable SkeldaNotificationMsg {
    /** The panel that it comes from. */
    PanelID panelId;
    SkeldaNotification notification;
}
