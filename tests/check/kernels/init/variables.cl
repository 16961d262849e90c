// launch: run([N], [L], zero("int", N), zero(T, N))
// with: T=int N=64 L=64
// with: T=float N=32 L=8
// with: T=double N=96 L=48
// bug SUM: items [0]
// bug SOME: items lowest(range(1, N, 2))
// bug BRANCH: items lowest(range(1, N, 2))
// bug INDEX: items lowest(range(1, N, 2))
// bug FIELD: items lowest(range(N))
struct pair { T first, second; };
__kernel void variables(__global const int* in, __global T* out)
{
    const int id = get_global_id(0);
#if defined SUM || defined SOME || defined BRANCH || defined INDEX
    T value;
#else
    T value = 1;
#endif
    if (id % 2 == 0)
        value = in[id] + 2;
#if defined SUM
    T sum;
    for (int n = 0; n < id; ++n)
        sum = n + in[id];
    out[id] = sum; // fault SUM: init
#elif defined BRANCH
    if (value > 1) // fault BRANCH: init
        out[id] = 1;
#elif defined INDEX
    out[id] = in[(int)value & 15]; // fault INDEX: init
#elif defined FIELD
    struct pair both;
    both.first = id;
    out[id] = both.first + both.second; // fault FIELD: init
#else
    out[id] = value; // fault SOME: init
#endif
}
