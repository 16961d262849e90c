/* The mean of each row of pixels. */
short sum_of(__global const uchar* row, int columns)
{
    short sum = 0;
    for (int column = 0; column < columns; ++column)
    {
        sum += row[column];
    }
    return sum;
}

__kernel void average(__global const uchar* pixels, __global int* means, int columns)
{
    int row = get_global_id(0);
    int sum = sum_of(pixels + row * columns, columns);
    means[row] = sum / columns;
}
