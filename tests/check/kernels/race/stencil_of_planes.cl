// launch: run([W, H], [8, 4], zero(T, (W + 2) * (H + 2)), zero(T, (W + 2) * (H + 2)))
// with: T=float W=16 H=8 ROW=18
// with: T=int W=64 H=4 ROW=66
// bug IN_PLACE: pair b == a + 1 or b == a + W
__kernel void stencil_of_planes(__global T* data, __global T* spare)
{
    const int at = (get_global_id(1) + 1) * ROW + get_global_id(0) + 1;
#ifdef REPAIRED
    spare[at] = data[at - 1] + data[at + 1] + data[at - ROW] + data[at + ROW] - 4 * data[at];
#else
    data[at] = data[at - 1] + data[at + 1] + data[at - ROW] + data[at + ROW] - 4 * data[at]; // fault: race
#endif
}
