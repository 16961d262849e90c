// Sparse matrix times vector, compressed rows: a row a work-item, and a row a group with a reduction.

__kernel void spmv_scalar(__global const uint* row_start, __global const uint* columns, __global const float* values,
                          __global const float* x, __global float* y, uint rows)
{
    const uint row = get_global_id(0);
    if (row >= rows)
        return;
    float sum = 0.0f;
    for (uint k = row_start[row]; k < row_start[row + 1]; ++k)
        sum = fma(values[k], x[columns[k]], sum);
    y[row] = sum;
}

__kernel __attribute__((reqd_work_group_size(16, 1, 1))) void
spmv_vector(__global const uint* row_start, __global const uint* columns, __global const float* values,
            __global const float* x, __global float* y)
{
    __local volatile float partial[16];
    const uint lid = get_local_id(0);
    const uint row = get_group_id(0);
    float sum = 0.0f;
    for (uint k = row_start[row] + lid; k < row_start[row + 1]; k += 16)
        sum += values[k] * x[columns[k]];
    partial[lid] = sum;
    barrier(CLK_LOCAL_MEM_FENCE);
    for (uint s = 8; s > 0; s >>= 1)
    {
        if (lid < s)
            partial[lid] += partial[lid + s];
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    if (lid == 0)
        y[row] = partial[0];
}
