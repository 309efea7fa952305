// A frozen version. Its users have been built with it: it never changes.
package com.quorin.input;
@VintfStability interface ISkeldaNotificationService {
    com.quorin.input.PanelInfo[] getPanelInfo();
    void registerListener(in com.quorin.input.PanelID panelId, in int notificationFlags, in com.quorin.input.ISkeldaNotificationListener listener);
    void unregisterListener(in com.quorin.input.PanelID panelId, in com.quorin.input.ISkeldaNotificationListener listener);
}
