// A frozen version. Its users have been built with it: it never changes.
package com.quorin.input;
@VintfStability @Backing(type="byte") enum PanelID {
    PRIMARY = 0,
    SECONDARY = 1,
}
