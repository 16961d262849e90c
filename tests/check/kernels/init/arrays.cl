// launch: run([N], [L], zero("int", N), zero(T, N))
// with: T=int N=64 L=64
// with: T=uchar N=16 L=16
// with: T=long N=32 L=16
// bug FIRST: items lowest(range(0, N, 4))
// bug LAST: items lowest(range(3, N, 4))
__kernel void arrays(__global const int* in, __global T* out)
{
    const int id = get_global_id(0);
    T own[4];
#ifdef FIRST
    for (int n = 1; n < 4; ++n)
#elif defined LAST
    for (int n = 0; n < 3; ++n)
#else
    for (int n = 0; n < 4; ++n)
#endif
        own[n] = in[id] + n;
    out[id] = own[(id + in[id]) % 4] + 1; // fault: init
}
