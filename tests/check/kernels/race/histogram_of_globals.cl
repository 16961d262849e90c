// launch: run([N], [L], iota("uint", N), zero(T, B))
// with: T=uint N=256 L=64 B=4
// with: T=int N=64 L=16 B=2
// bug: pair a % B == b % B
__kernel void histogram_of_globals(__global const uint* values, __global T* bins)
{
    const uint bin = values[get_global_id(0)] % B;
#ifdef REPAIRED
    atomic_inc(&bins[bin]);
#else
    bins[bin] += 1; // fault: race
#endif
}
