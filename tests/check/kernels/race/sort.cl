// Bitonic sort of a group's words.
// launch: run([N], [L], iota(T, N))
// with: T=int N=64 L=64
// with: T=float N=64 L=16
// with: T=ulong N=256 L=128
// bug NO_BARRIER: pair a // L == b // L
// bug BOTH: pair a // L == b // L and bin(a ^ b).count("1") == 1
__kernel void sort(__global T* data)
{
    __local T part[L];
    const int lid = get_local_id(0);
    part[lid] = data[get_global_id(0)];
    for (int size = 2; size <= L; size *= 2)
    {
        for (int step = size / 2; step > 0; step /= 2)
        {
#ifdef NO_BARRIER
            if (step == size / 2)
#endif
                barrier(CLK_LOCAL_MEM_FENCE);
            const int other = lid ^ step;
#ifdef BOTH
            if (other != lid)
#else
            if (other > lid)
#endif
            { const T a = part[lid], b = part[other]; if ((a < b) == ((lid & size) != 0)) { part[lid] = b; part[other] = a; } } // fault: race
        }
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    data[get_global_id(0)] = part[lid];
}
