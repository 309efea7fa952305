package p;
interface T {
 const int X = 4;
 const String S = "a" + "b";
 void f(in int[] a, @nullable String s);
 oneway void g(IBinder b);
}
