// launch: run([N], [L], zero(T, N), zero(T, N))
// with: T=int N=64 L=16
// with: T=uchar N=100 L=50
// with: T=double N=64 L=64
// with: T=short N=251 L=251
// bug WRITE: items [N - 1]
// bug READ: items [N - 1]
// bug BEFORE: items [0]
// bug TWICE: items lowest(range(N // 2 + N % 2, N))
__kernel void ends(__global const T* in, __global T* out)
{
    const int id = get_global_id(0);
#if defined READ
    out[id] = in[id + 1]; // fault READ: memory
#elif defined WRITE
    out[id + 1] = in[id]; // fault WRITE: memory
#elif defined BEFORE
    out[id] = in[id - 1]; // fault BEFORE: memory
#elif defined TWICE
    out[id] = in[2 * id]; // fault TWICE: memory
#else
    out[id] = in[id];
#endif
}
