// A hash table with open addressing that all work-items fill at once, then look keys up in.

#define EMPTY 0xFFFFFFFFu

uint hash(uint key)
{
    key ^= key >> 16;
    key *= 0x85ebca6bu;
    key ^= key >> 13;
    key *= 0xc2b2ae35u;
    return key ^ (key >> 16);
}

__kernel void insert(volatile __global uint* keys, volatile __global uint* counts, uint mask, __global const uint* in)
{
    const uint key = in[get_global_id(0)];
    for (uint slot = hash(key) & mask;; slot = (slot + 1) & mask)
    {
        const uint old = atomic_cmpxchg(&keys[slot], EMPTY, key);
        if (old == EMPTY || old == key)
        {
            atomic_inc(&counts[slot]);
            return;
        }
    }
}

__kernel void lookup(__global const uint* keys, __global const uint* counts, uint mask, __global const uint* wanted,
                     __global uint* result)
{
    const uint key = wanted[get_global_id(0)];
    uint slot = hash(key) & mask;
    uint count = 0;
    do
    {
        if (keys[slot] == key)
        {
            count = counts[slot];
            break;
        }
        slot = (slot + 1) & mask;
    } while (keys[slot] != EMPTY);
    result[get_global_id(0)] = count;
}
