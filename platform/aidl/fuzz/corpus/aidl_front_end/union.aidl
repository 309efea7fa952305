package p;
union T {
 double d = -1.5e-3;
 @nullable String[] s;
 parcelable N { long x = 0x10; }
 N n;
}
