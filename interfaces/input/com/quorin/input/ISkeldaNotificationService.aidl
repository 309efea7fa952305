package com.quorin.input;

import com.quorin.input.ISkeldaNotificationListener;
import com.quorin.input.PanelID;
import com.quorin.input.PanelInfo;

/** The device's touch-input service. */
@VintfStability
interface ISkeldaNotificationService {
    /** Every panel of the device. */
    PanelInfo[] getPanelInfo();

    /**
     * From now on the listener hears of the panel's notifications of the kinds in
     * `notificationFlags`, a bit each. It may be registered again.
     */
    void registerListener(in PanelID panelId, int notificationFlags,
            ISkeldaNotificationListener listener);

    void unregisterListener(in PanelID panelId, ISkeldaNotificationListener listener);
}
