package p;
parcelable T { int x = ((((1 << 63)))) / -1; }
