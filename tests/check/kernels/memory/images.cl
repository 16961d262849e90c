// launch: {**run([8, 4], [8, 4], zero("float", 32)), "args": [{"image": {"order": "R", "channel": "float", "width": 8, "height": 4, "fill": "zero"}}, {"buffer": {"type": "float", "count": 32, "fill": "zero"}}]}
// bug WRITE: items [7, 15, 23, 31]
__kernel void images(write_only image2d_t out, __global float* spare)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
#ifdef WRITE
    write_imagef(out, (int2)(x + 1, y), (float4)(1)); // fault WRITE: memory
#else
    write_imagef(out, (int2)(x, y), (float4)(1));
#endif
    spare[y * 8 + x] = 1;
}
