// Rows of R words, which end one too late.
// launch: run([N], [L], zero(T, R * N + 1))
// with: T=int N=64 L=16 R=5
// with: T=uchar N=64 L=64 R=3
// with: T=double N=100 L=50 R=2
// bug: pair b == a + 1
__kernel void rows(__global T* data)
{
    const int row = get_global_id(0) * R;
#ifdef REPAIRED
    const int end = R;
#else
    const int end = R + 1;
#endif
    for (int n = 0; n < end; ++n)
        data[row + n] = row * 2 + n; // fault: race
}
