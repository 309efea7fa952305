package velmora.sample;

import velmora.sample.IListener;

/** Holds what cannot be compared, and objects. */
parcelable Carrier {
    ParcelableHolder payload;
    @nullable IBinder token;
    @nullable IListener listener;
    @nullable IListener[] listeners;
}
