// launch: run([N], [L], zero(T, N), zero(T, N))
// with: T=float N=64 L=64
// with: T=double N=32 L=16
// bug RATIO: items lowest(range(N))
// bug OF_ZERO: items lowest(range(N))
// bug ROOT: items lowest(range(N))
// bug DIFFERENCE: items lowest(range(N))
// bug POWER: items lowest(range(1, N))
__kernel void floats(__global const T* in, __global T* out)
{
    const int id = get_global_id(0);
    T value = in[id];
#if defined RATIO
    value = value / value; // fault RATIO: nan
#elif defined OF_ZERO
    value = (value + 2) / value; // fault OF_ZERO: nan
#elif defined ROOT
    value = sqrt(value - 1); // fault ROOT: nan
#elif defined DIFFERENCE
    value = (value + 1) / value - (value + 2) / value; // fault DIFFERENCE: nan
#elif defined POWER
    for (int n = 0; n < 12 * (id != 0); ++n)
        value = (value + 1) * (value + 2) * (value + 3); // fault POWER: nan
#else
    value = value / (value + 1);
#endif
    out[id] = value * 2;
}
