package p;
parcelable T { /** unterminated
