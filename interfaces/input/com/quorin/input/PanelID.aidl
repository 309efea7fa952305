package com.quorin.input;

/** A touch panel of the device. Values beside the named ones are panels too. */
@VintfStability
@Backing(type="byte")
enum PanelID {
    PRIMARY = 0,
    SECONDARY = 1,
}
