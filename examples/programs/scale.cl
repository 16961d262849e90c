__kernel void scale(__global float* data, float factor, int count)
{
    int i = get_global_id(0);
    if (i < count)
    {
        float value = data[i];
        data[i] = value * factor;
    }
}

__kernel void add(__global const float* left, __global const float* right, __global float* sum)
{
    int i = get_global_id(0);
    sum[i] = left[i] + right[i];
}
