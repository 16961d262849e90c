// launch: run([N], [L], zero(T, W * N + W))
// with: T=float W=4 N=32 L=8
// with: T=uint W=8 N=64 L=64
// with: T=double W=2 N=64 L=32
// with: T=int W=3 N=128 L=64
// with: T=uint W=16 N=16 L=16
// bug OVERLAP: pair b == a + 1
#define JOIN(a, b) a##b
#define STORE(n) JOIN(vstore, n)
#define VECTOR(t, n) JOIN(t, n)
__kernel void vectors(__global T* out)
{
    const int id = get_global_id(0);
    const VECTOR(T, W) value = (VECTOR(T, W))((T)(id + 1));
#ifdef OVERLAP
    STORE(W)(value, 0, out + id * (W - 1)); // fault: race
#else
    STORE(W)(value, 0, out + id * W);
#endif
}
