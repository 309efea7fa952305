package p;
@Backing(type="byte") enum T { A, B = A + 1, C = -1 }
