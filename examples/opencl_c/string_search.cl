// Finds a pattern in a text by Horspool's method; each work-item looks at its own stretch.

__kernel void string_search(__global const char* text, uint length, __constant char* pattern, uint pattern_length,
                            __global uint* positions, __global uint* found, uint capacity)
{
    __local uchar shift[256];
    for (uint i = get_local_id(0); i < 256; i += get_local_size(0))
        shift[i] = (uchar)pattern_length;
    barrier(CLK_LOCAL_MEM_FENCE);
    if (get_local_id(0) == 0)
        for (uint i = 0; i + 1 < pattern_length; ++i)
            shift[(uchar)pattern[i]] = (uchar)(pattern_length - 1 - i);
    barrier(CLK_LOCAL_MEM_FENCE);

    const uint stretch = (length + get_global_size(0) - 1) / get_global_size(0);
    uint at = get_global_id(0) * stretch;
    const uint end = min(at + stretch, length);
    while (at < end && at + pattern_length <= length)
    {
        int i = (int)pattern_length - 1;
        while (i >= 0 && text[at + i] == pattern[i])
            --i;
        if (i < 0)
        {
            const uint slot = atomic_inc(found);
            if (slot < capacity)
                positions[slot] = at;
            at += 1;
        }
        else
        {
            at += shift[(uchar)text[at + pattern_length - 1]];
        }
    }
}
