// Gravity among bodies, positions with their mass in w, tiles of bodies in local memory.

__kernel void nbody(__global const float4* position, __global float4* velocity, __global float4* moved, int count,
                    float dt, float softening, __local float4* tile)
{
    const int i = get_global_id(0);
    const float4 me = position[i];
    float4 acceleration = 0.0f;
    for (int base = 0; base < count; base += (int)get_local_size(0))
    {
        event_t copy = async_work_group_copy(tile, position + base, get_local_size(0), 0);
        wait_group_events(1, &copy);
        for (int j = 0; j < (int)get_local_size(0); ++j)
        {
            float4 d = tile[j] - me;
            d.w = 0;
            const float r2 = dot(d, d) + softening;
            acceleration += d * (tile[j].w / (r2 * sqrt(r2)));
        }
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    const float4 v = velocity[i] + acceleration * dt;
    velocity[i] = v;
    moved[i] = (float4)(me.xyz + v.xyz * dt, me.w);
}
