package velmora.sample;

parcelable Empty {
}
