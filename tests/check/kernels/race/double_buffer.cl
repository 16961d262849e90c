// launch: run([N], [L], zero(T, N))
// with: T=int N=64 L=32
// with: T=float N=128 L=128
// bug: pair b == a + 1 or b == a + L - 1
__kernel void double_buffer(__global T* data)
{
    __local T parts[2][L];
    const int lid = get_local_id(0);
    parts[0][lid] = data[get_global_id(0)];
    for (int n = 0; n < 4; ++n)
    {
        barrier(CLK_LOCAL_MEM_FENCE);
#ifdef REPAIRED
        const int to = (n + 1) % 2;
#else
        const int to = n % 2;
#endif
        parts[to][lid] = parts[n % 2][(lid + 1) % L]; // fault: race
    }
    barrier(CLK_LOCAL_MEM_FENCE);
    data[get_global_id(0)] = parts[0][lid];
}
