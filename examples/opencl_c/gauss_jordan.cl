// Solves many small systems of linear equations, one a work-item, with pivoting, in double precision.

#pragma OPENCL EXTENSION cl_khr_fp64 : enable
#define N 5

__kernel void gauss_jordan(__global const double* matrices, __global const double* sides, __global double* solutions,
                           __global int* singular)
{
    const size_t id = get_global_id(0);
    double a[N][N + 1];
    for (int r = 0; r < N; ++r)
    {
        for (int c = 0; c < N; ++c)
            a[r][c] = matrices[(id * N + r) * N + c];
        a[r][N] = sides[id * N + r];
    }
    for (int c = 0; c < N; ++c)
    {
        int pivot = c;
        for (int r = c + 1; r < N; ++r)
            if (fabs(a[r][c]) > fabs(a[pivot][c]))
                pivot = r;
        if (fabs(a[pivot][c]) < 1e-12)
        {
            singular[id] = 1;
            return;
        }
        for (int k = 0; k <= N; ++k)
        {
            const double t = a[c][k];
            a[c][k] = a[pivot][k];
            a[pivot][k] = t;
        }
        const double inverse = 1.0 / a[c][c];
        for (int k = c; k <= N; ++k)
            a[c][k] *= inverse;
        for (int r = 0; r < N; ++r)
        {
            if (r == c)
                continue;
            const double factor = a[r][c];
            for (int k = c; k <= N; ++k)
                a[r][k] -= factor * a[c][k];
        }
    }
    singular[id] = 0;
    for (int r = 0; r < N; ++r)
        solutions[id * N + r] = a[r][N];
}
