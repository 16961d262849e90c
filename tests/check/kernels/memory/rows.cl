// launch: run([N], [L], zero(T, R * N), zero(T, N))
// with: T=int N=8 L=4 R=10
// with: T=float N=64 L=64 R=3
// bug LONG: items [N - 1]
// bug TRANSPOSED: items lowest(i for i in range(N) if (R - 1) * N + i + R >= R * N)
__kernel void rows(__global const T* rows_of, __global T* sums)
{
    const int id = get_global_id(0);
    T sum = 0;
#ifdef LONG
    const int end = R + 1;
#else
    const int end = R;
#endif
    for (int n = 0; n < end; ++n)
#ifdef TRANSPOSED
        sum += rows_of[n * N + id + R]; // fault TRANSPOSED: memory
#else
        sum += rows_of[id * R + n]; // fault LONG: memory
#endif
    sums[id] = sum;
}
