// Distance of each word of a list from one word, two rows of the table in private memory.

#define MAX_LENGTH 31

__kernel void levenshtein(__global const char* words, __global const int* starts, __constant char* wanted,
                          int wanted_length, __global int* distances)
{
    const int id = get_global_id(0);
    __global const char* word = words + starts[id];
    const int length = starts[id + 1] - starts[id];
    uchar rows[2][MAX_LENGTH + 1];
    for (int j = 0; j <= wanted_length; ++j)
        rows[0][j] = j;
    int current = 0;
    for (int i = 1; i <= length; ++i)
    {
        uchar* previous = rows[current];
        current ^= 1;
        uchar* row = rows[current];
        row[0] = i;
        for (int j = 1; j <= wanted_length; ++j)
        {
            const uchar substitute = previous[j - 1] + (word[i - 1] != wanted[j - 1]);
            row[j] = min(min((uchar)(previous[j] + 1), (uchar)(row[j - 1] + 1)), substitute);
        }
    }
    distances[id] = rows[current][wanted_length];
}
