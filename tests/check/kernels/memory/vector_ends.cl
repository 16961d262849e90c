// launch: run([N], [L], zero(T, W * N))
// with: T=float W=4 N=16 L=16
// with: T=int W=2 N=33 L=11
// with: T=uchar W=16 N=16 L=8
// bug PAST: items [N - 1]
// bug PART: items [N - 1]
#define JOIN(a, b) a##b
#define VECTOR(t, n) JOIN(t, n)
#define STORE(n) JOIN(vstore, n)
__kernel void vector_ends(__global T* out)
{
    const int id = get_global_id(0);
    const VECTOR(T, W) value = (VECTOR(T, W))((T)id);
#if defined PAST
    ((__global VECTOR(T, W)*)out)[id + 1] = value; // fault PAST: memory
#elif defined PART
    out[id == N - 1 ? N * W : id] = value.x; // fault PART: memory
#else
    STORE(W)(value, id, out);
#endif
}
