int twice(int number)
{
    int result = number + number;
    if (result > 8)
    {
        result = result - 3;
    }
    return result;
}

__kernel void line_steps(__global int* out)
{
    const int id = get_global_id(0);
    int total = id;
    for (int pass = 0; pass < 2; ++pass)
    {
        total = twice(total + pass);
        out[id] = total;
    }
    int sum = 0; for (int n = 0; n < out[id]; ++n) { sum += n; }
    out[id] = twice(sum);
}
