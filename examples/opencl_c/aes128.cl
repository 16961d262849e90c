// AES-128 (FIPS 197) in electronic codebook mode, one block a work-item; the S-box is made in local memory.

uchar xtime(uchar x)
{
    return (uchar)((x << 1) ^ ((x & 0x80) ? 0x1b : 0));
}

uchar gmul(uchar a, uchar b)
{
    uchar p = 0;
    while (b)
    {
        if (b & 1)
            p ^= a;
        a = xtime(a);
        b >>= 1;
    }
    return p;
}

uchar sbox_of(uchar x)
{
    // The inverse in GF(2^8) is x to the 254th.
    uchar inverse = 1, power = x;
    for (uchar e = 254; e; e >>= 1)
    {
        if (e & 1)
            inverse = gmul(inverse, power);
        power = gmul(power, power);
    }
    uchar s = x ? inverse : (uchar)0;
    return s ^ rotate(s, (uchar)1) ^ rotate(s, (uchar)2) ^ rotate(s, (uchar)3) ^ rotate(s, (uchar)4) ^ (uchar)0x63;
}

void expand_key(const __global uchar* key, uchar* round_keys, const __local uchar* sbox)
{
    for (int i = 0; i < 16; ++i)
        round_keys[i] = key[i];
    uchar rcon = 1;
    for (int i = 16; i < 176; i += 4)
    {
        uchar4 t = vload4(0, round_keys + i - 4);
        if (i % 16 == 0)
        {
            t = (uchar4)(sbox[t.y] ^ rcon, sbox[t.z], sbox[t.w], sbox[t.x]);
            rcon = xtime(rcon);
        }
        vstore4(vload4(0, round_keys + i - 16) ^ t, 0, round_keys + i);
    }
}

__kernel void aes128_encrypt(__global const uchar16* plain, __global uchar16* cipher, __global const uchar* key)
{
    __local uchar sbox[256];
    for (uint i = get_local_id(0); i < 256; i += get_local_size(0))
        sbox[i] = sbox_of((uchar)i);
    barrier(CLK_LOCAL_MEM_FENCE);

    uchar round_keys[176];
    expand_key(key, round_keys, sbox);
    uchar16 state = plain[get_global_id(0)] ^ vload16(0, round_keys);
    for (int round = 1; round <= 10; ++round)
    {
        uchar s[16];
        vstore16(state, 0, s);
        for (int i = 0; i < 16; ++i)
            s[i] = sbox[s[i]];
        state = vload16(0, s).s05af49e38d27c16b;
        if (round < 10)
        {
            vstore16(state, 0, s);
            for (int c = 0; c < 16; c += 4)
            {
                const uchar all = s[c] ^ s[c + 1] ^ s[c + 2] ^ s[c + 3];
                const uchar first = s[c];
                s[c] ^= all ^ xtime(s[c] ^ s[c + 1]);
                s[c + 1] ^= all ^ xtime(s[c + 1] ^ s[c + 2]);
                s[c + 2] ^= all ^ xtime(s[c + 2] ^ s[c + 3]);
                s[c + 3] ^= all ^ xtime(s[c + 3] ^ first);
            }
            state = vload16(0, s);
        }
        state ^= vload16(round, round_keys);
    }
    cipher[get_global_id(0)] = state;
}
