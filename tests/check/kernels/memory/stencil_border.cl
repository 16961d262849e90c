// launch: run([W, H], [8, 4], zero(T, W * H), zero(T, W * H))
// with: T=float W=16 H=8
// with: T=int W=64 H=4
// with: T=double W=8 H=16
// bug ABOVE: items lowest(range(W))
// bug BELOW: items lowest(range(W * (H - 1), W * H))
// bug CORNER: items [W * H - 1]
// bug BOTH_ENDS: items [0, W * H - 1]
__kernel void stencil_border(__global const T* in, __global T* out)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
    T sum = in[y * W + x];
#ifdef ABOVE
    sum += in[(y - 1) * W + x]; // fault ABOVE: memory
#else
    sum += in[max(y - 1, 0) * W + x];
#endif
#ifdef BELOW
    sum += in[(y + 1) * W + x]; // fault BELOW: memory
#else
    sum += in[min(y + 1, H - 1) * W + x];
#endif
#ifdef CORNER
    sum += in[y * W + x + 1]; // fault CORNER: memory
#else
    sum += in[y * W + min(x + 1, W - 1)];
#endif
#ifdef BOTH_ENDS
    sum += in[y * W + x - 1] + in[y * W + x + 1]; // fault BOTH_ENDS: memory
#endif
    out[y * W + x] = sum;
}
