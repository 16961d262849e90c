// A kernel with many branches and loops. A C compiler builds it too, and its counts of lines are the expected ones.

int odd_part(int value)
{
    while (value % 2 == 0)
        value /= 2;
    return value;
}

int classify(int value)
{
    if (value < 3)
        return -1;
    switch (value % 5)
    {
    case 0:
        return value / 5;
    case 1:
    case 2:
        value += 7;
        break;
    default:
        value -= 1;
    }
    return odd_part(value + 1);
}

int never(int value)
{
    return value * 3;
}

__kernel void walks(__global int* data)
{
    const int item = get_global_id(0);
    int sum = 0;
    if (item % 7 == 6)
    {
        data[item] = odd_part(item + 2);
        return;
    }
    for (int i = 0; i < item % 4; ++i)
    {
        if (i == 2)
            continue;
        for (int j = item; j > i; j -= 3)
        {
            sum += classify(j);
            if (sum > 40)
                break;
        }
    }
    int rounds = 0;
    do
    {
        sum -= odd_part(rounds + 4);
        ++rounds;
    } while (sum > 10 && rounds < 5);
    if (item < 0)
        sum = never(sum);
    else if (item > 50)
        sum += classify(item);
    data[item] = sum * 2 + rounds;
}
