// Runs the kernel of walks.cl for one work-item after the other, and prints the buffer: host ITEMS
#include <stdio.h>
#include <stdlib.h>

#define __kernel
#define __global

static int s_item;

static int get_global_id(int dimension)
{
    return dimension == 0 ? s_item : 0;
}

#include "walks.cl"

int main(int argc, char** argv)
{
    const int items = argc > 1 ? atoi(argv[1]) : 0;
    int* data = calloc((size_t)items + 1, sizeof(int));
    for (s_item = 0; s_item < items; ++s_item)
        walks(data);
    for (int n = 0; n < items; ++n)
        printf("%d%s", data[n], n + 1 < items ? "," : "\n");
    free(data);
    return 0;
}
