// launch: run([8], [8], zero("uchar", 64))
// bug: items list(range(8))
__kernel void misaligned_atomic(__global uchar* bytes)
{
#ifdef REPAIRED
    atomic_inc((__global uint*)(bytes + get_global_id(0) * 4));
#else
    atomic_inc((__global uint*)(bytes + get_global_id(0) * 4 + 2)); // fault: alignment
#endif
}
