// A vertex takes a colour that its neighbours in a grid haven't got.
// launch: run([W, H], [8, H], zero(T, W * H), zero(T, W * H))
// with: T=int W=16 H=4
// with: T=uchar W=8 H=8
// bug: pair b == a + 1
__kernel void graph_colours(__global T* colours, __global T* next)
{
    const int v = get_global_id(1) * W + get_global_id(0);
    int taken = 0;
    if (get_global_id(0) > 0)
        taken |= 1 << colours[v - 1]; // fault: race
#ifdef REPAIRED
    next[v] = taken & 1;
#else
    colours[v] = taken & 1; // fault: race
#endif
}
