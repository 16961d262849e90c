void put(__global int* to, int where, int what)
{
    to[where] = what;
}

__kernel void wild_index(__global int* data)
{
    size_t item = get_global_id(0);
    put(data, item == 5 ? 1000000 : (int)item, 7);
}
