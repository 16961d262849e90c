// launch: run([N], [L], zero(T, N))
// with: T=uint N=64 L=32
// with: T=int N=256 L=64
// bug: pair a // 32 == b // 32
__kernel void bits(__global T* words)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    atomic_or(&words[id / 32], (T)1 << id % 32);
#else
    words[id / 32] |= (T)1 << id % 32; // fault: race
#endif
}
