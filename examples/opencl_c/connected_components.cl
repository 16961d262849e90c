// Labels of connected pixels: each takes the least label around it until nothing changes.

__kernel void init_labels(__global const uchar* pixels, __global int* labels)
{
    const int id = get_global_id(1) * get_global_size(0) + get_global_id(0);
    labels[id] = pixels[id] ? id : -1;
}

__kernel void spread_labels(__global const uchar* pixels, __global volatile int* labels, __global int* changed)
{
    const int x = get_global_id(0), y = get_global_id(1);
    const int width = get_global_size(0), height = get_global_size(1);
    const int id = y * width + x;
    if (!pixels[id])
        return;
    const int2 around[4] = {(int2)(-1, 0), (int2)(1, 0), (int2)(0, -1), (int2)(0, 1)};
    int best = labels[id];
    for (int n = 0; n < 4; ++n)
    {
        const int2 at = (int2)(x, y) + around[n];
        if (any(at < 0) || any(at >= (int2)(width, height)))
            continue;
        const int other = labels[at.y * width + at.x];
        if (other >= 0 && other < best)
            best = other;
    }
    if (best < labels[id])
    {
        atomic_min(&labels[id], best);
        *changed = 1;
    }
}
