// SHA-256 (FIPS 180-4) of one message a work-item; messages of up to 119 bytes, padded here.

__constant uint k[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

#define ROTR(x, n) rotate((uint)(x), (uint)(32 - (n)))
#define CH(x, y, z) bitselect((z), (y), (x))
#define MAJ(x, y, z) (((x) & (y)) ^ ((x) & (z)) ^ ((y) & (z)))
#define S0(x) (ROTR(x, 2) ^ ROTR(x, 13) ^ ROTR(x, 22))
#define S1(x) (ROTR(x, 6) ^ ROTR(x, 11) ^ ROTR(x, 25))
#define G0(x) (ROTR(x, 7) ^ ROTR(x, 18) ^ ((x) >> 3))
#define G1(x) (ROTR(x, 17) ^ ROTR(x, 19) ^ ((x) >> 10))

void sha256_block(uint* state, const uint* block)
{
    uint w[64];
    for (int i = 0; i < 16; ++i)
        w[i] = block[i];
    for (int i = 16; i < 64; ++i)
        w[i] = G1(w[i - 2]) + w[i - 7] + G0(w[i - 15]) + w[i - 16];
    uint a = state[0], b = state[1], c = state[2], d = state[3];
    uint e = state[4], f = state[5], g = state[6], h = state[7];
    for (int i = 0; i < 64; ++i)
    {
        const uint t1 = h + S1(e) + CH(e, f, g) + k[i] + w[i];
        const uint t2 = S0(a) + MAJ(a, b, c);
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
    state[5] += f;
    state[6] += g;
    state[7] += h;
}

__kernel void sha256(__global const uchar* messages, __global const uint* lengths, uint stride, __global uint* digests)
{
    const uint id = get_global_id(0);
    const uint length = lengths[id];
    __global const uchar* message = messages + id * stride;
    uint blocks[32];
    for (int i = 0; i < 32; ++i)
        blocks[i] = 0;
    for (uint i = 0; i < length; ++i)
        blocks[i / 4] |= (uint)message[i] << (24 - 8 * (i % 4));
    blocks[length / 4] |= 0x80u << (24 - 8 * (length % 4));
    const uint count = length < 56 ? 1 : 2;
    blocks[16 * count - 1] = length * 8;

    uint state[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    for (uint i = 0; i < count; ++i)
        sha256_block(state, blocks + 16 * i);
    for (int i = 0; i < 8; ++i)
        digests[id * 8 + i] = state[i];
}
