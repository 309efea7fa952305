package com.quorin.input;

import com.quorin.input.PanelID;

/** What a panel is and can report. */
@VintfStability
parcelable PanelInfo {
    PanelID panelId;
    /** The kinds of notifications that the panel can send, a bit each. */
    long supportedFlags;
}
