package velmora.peers.events;

/** What an event of the comparison carries: the bytes that every system has to deliver. */
@VintfStability
parcelable Bytes {
    byte[] data;
}
