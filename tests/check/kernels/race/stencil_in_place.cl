// launch: run([N], [L], zero(T, N + 2), zero(T, N + 2))
// with: T=float N=64 L=16
// with: T=double N=256 L=128
// with: T=short N=100 L=100
// bug: pair b == a + 1
__kernel void stencil_in_place(__global T* data, __global T* spare)
{
    const int id = get_global_id(0) + 1;
#ifdef REPAIRED
    spare[id] = (data[id - 1] + data[id] + data[id + 1]) / 3;
#else
    data[id] = (data[id - 1] + data[id] + data[id + 1]) / 3; // fault: race
#endif
}
