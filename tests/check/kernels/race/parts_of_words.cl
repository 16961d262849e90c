// Elements that share a word with others aren't shared themselves.
// launch: run([N], [L], zero(T, 4 * N))
// with: T=uchar N=64 L=16
// with: T=short N=128 L=128
// with: T=float N=32 L=32
// with: T=char N=130 L=65
// bug SHARED: pair b == a + 1 and a % 2 == 0
// bug WIDE: pair b == a + 1
__kernel void parts_of_words(__global T* out)
{
    const int id = get_global_id(0);
#if defined SHARED
    out[id / 2] = id; // fault SHARED: race
#elif defined WIDE
    out[id] = out[id + 1] = id; // fault WIDE: race
#else
    out[id] = id;
#endif
}
