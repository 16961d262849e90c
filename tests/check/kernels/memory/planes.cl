// launch: run([W, H], [W, 1], zero(T, W * H))
// with: T=int W=8 H=4
// with: T=short W=16 H=3
// bug: items lowest(y * W + x for y in range(H) for x in range(W) if x * W + y >= W * H)
__kernel void planes(__global T* out)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
#ifdef REPAIRED
    out[x * H + y] = x;
#else
    out[x * W + y] = x; // fault: memory
#endif
}
