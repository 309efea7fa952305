package p;
import p.Q;
parcelable T { Q q; const int X = Q.X; }
