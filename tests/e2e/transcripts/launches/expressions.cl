typedef struct pair_s { int a; float4 v; short s[3]; } pair;
__constant float table[4] = {1.0f, 2.0f, 3.0f, 4.0f};

float scale(__global const float* p, int k)
{
    float r = p[k] * 2.0f;
    return r;
}

__kernel void expressions(__global float* out, __global const float* in, __local int* tmp, int n, __constant float* c)
{
    __local int slm[8];
    int i = get_global_id(0);
    pair q;
    q.a = i;
    q.v = (float4)(i, 2, 3, 4);
    q.s[0] = 1;
    q.s[1] = -i;
    q.s[2] = 3;
    pair* pq = &q;
    __local int* ls = slm + 2;
    slm[get_local_id(0)] = i * 10;
    tmp[get_local_id(0)] = i;
    double d = i * 0.5;
    long big = (long)i << 33;
    char ch = (char)(i + 65);
    uchar8 u8 = (uchar8)(1, 2, 3, 4, 5, 6, 7, 8);
    barrier(CLK_LOCAL_MEM_FENCE);
    float x0 = scale(in, i);
    int arr[5];
    for (int k = 0; k < 5; ++k)
    {
        arr[k] = k * i;
    }
    bool b = i > 2;
    out[i] = x0 + pq->v.x + arr[2] + (float)d + big + ch + u8.s3 + ls[1] + tmp[0] + table[i & 3] + c[0] + b;
    out[i] += n;
}
