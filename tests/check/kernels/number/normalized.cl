// launch: run([N], [N], zero("float", 4 * N))
// with: N=32
// with: N=65
// bug: items lowest(range(0, N, 2))
__kernel void normalized(__global float4* data)
{
    const int id = get_global_id(0);
    const float4 v = data[id] + (float4)(id % 2);
    const float length_squared = dot(v, v);
#ifdef REPAIRED
    data[id] = v / sqrt(max(length_squared, 1e-12f));
#else
    data[id] = v / sqrt(length_squared); // fault: nan
#endif
}
