// A frozen version. Its users have been built with it: it never changes.
package com.quorin.input;
@VintfStability parcelable PanelInfo {
    com.quorin.input.PanelID panelId;
    long supportedFlags;
}
