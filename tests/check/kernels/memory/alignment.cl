// launch: run([8], [8], zero("uchar", 256))
// with: T=uint SIZE=4 OFF=2
// with: T=ulong SIZE=8 OFF=3
// with: T=ushort SIZE=2 OFF=1
// bug WRITE: items list(range(8))
// bug READ: items list(range(8))
__kernel void alignment(__global uchar* bytes)
{
    const int id = get_global_id(0);
#ifdef REPAIRED
    __global T* word = (__global T*)(bytes + id * SIZE);
#else
    __global T* word = (__global T*)(bytes + id * SIZE + OFF);
#endif
#ifdef READ
    bytes[128 + id] = *word & 1; // fault READ: alignment
#else
    *word = id; // fault WRITE: alignment
#endif
}
