// CRC-32 (polynomial 0xEDB88320) of many packets; the table is one of the program's constants, four bits at a time.

__constant uint table[16] = {0x00000000, 0x1db71064, 0x3b6e20c8, 0x26d930ac, 0x76dc4190, 0x6b6b51f4,
                             0x4db26158, 0x5005713c, 0xedb88320, 0xf00f9344, 0xd6d6a3e8, 0xcb61b38c,
                             0x9b64c2b0, 0x86d3d2d4, 0xa00ae278, 0xbdbdf21c};

typedef struct __attribute__((packed))
{
    uchar kind;
    uint offset;
    ushort length;
} packet_t;

__kernel void crc32(__global const uchar* data, __global const packet_t* packets, __global uint* sums)
{
    const packet_t packet = packets[get_global_id(0)];
    uint crc = ~0u;
    for (ushort i = 0; i < packet.length; ++i)
    {
        crc ^= data[packet.offset + i];
        crc = table[crc & 15] ^ (crc >> 4);
        crc = table[crc & 15] ^ (crc >> 4);
    }
    sums[get_global_id(0)] = packet.kind ? ~crc : 0;
}
