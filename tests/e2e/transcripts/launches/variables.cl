typedef struct point { float2 at; short tag; struct { char kind; double weight; } more; } point_t;
typedef struct node { int value; __global struct node* next; } node_t;

int twice(int number)
{
    int result = number + number;
    return result;
}

__kernel void variables(__global int* out, __global node_t* nodes, __global const point_t* points, uchar limit)
{
    __local int shared[8];
    const int id = get_global_id(0);
    point_t point = points[id];
    point.tag = (short)(-5 - id);
    __global node_t* node = nodes + id;
    int steps[3] = {id, id * 10, id * 100};
    uint4 four = (uint4)(1, 2, 3, 4) * (uint)(id + 1);
    long big = ((long)id - 1) << 40;
    bool odd = (id & 1) != 0;
    float half_of = id * 0.5f;
    limit += 250;
    shared[get_local_id(0)] = id;
    barrier(CLK_LOCAL_MEM_FENCE);
    int sum = twice(steps[1]) + node->value;
    out[id] = sum + (int)point.at.y + (int)big + (odd ? 1 : 0) + (int)half_of + (int)four.w + shared[0] + limit;
}
