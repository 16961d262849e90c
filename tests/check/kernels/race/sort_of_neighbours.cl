// launch: run([N], [N], iota(T, 2 * N))
// with: T=int N=32
// with: T=short N=128
// bug: pair b == a + 1
__kernel void sort_of_neighbours(__global T* data)
{
    for (int n = 0; n < 4; ++n)
    {
#ifdef REPAIRED
        const int at = 2 * get_global_id(0) + n % 2;
#else
        const int at = get_global_id(0) + n % 2;
#endif
        if (at + 1 < 2 * N) { const T a = data[at], b = data[at + 1]; data[at] = max(a, b); data[at + 1] = min(a, b); } // fault: race
        barrier(CLK_GLOBAL_MEM_FENCE);
    }
}
