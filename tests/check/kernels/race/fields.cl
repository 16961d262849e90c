// launch: run([N], [L], zero("int", 4 * N + 4))
// with: N=64 L=64
// with: N=64 L=16
// bug: pair b == a + 1
struct node { int key; short left, right; long weight; };
__kernel void fields(__global struct node* nodes)
{
    const int id = get_global_id(0);
    nodes[id].left = id; // fault: race
#ifdef REPAIRED
    nodes[id + 1].right = id;
#else
    nodes[id + 1].left = -id; // fault: race
#endif
}
