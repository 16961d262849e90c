// launch: run([W, H], [W, 1], zero("int", W * H), zero("int", W), zero("int", H))
// with: W=16 H=4
// with: W=64 H=3
// bug PLAIN: pair a // W == b // W
__kernel void product_with_vector(__global const int* matrix, __global const int* vector, __global int* out)
{
    const int x = get_global_id(0);
    const int y = get_global_id(1);
    const int product = matrix[y * W + x] * vector[x] + x;
#ifdef PLAIN
    out[y] += product; // fault: race
#else
    atomic_add(&out[y], product);
#endif
}
