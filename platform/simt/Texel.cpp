#include "platform/simt/Texel.h"

#include "platform/simt/FloatBits.h"
#include "platform/simt/HalfFloat.h"

#include <CL/cl.h>

#include <cmath>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const int s_nNone = -1;

/// For each stored channel the component that it holds, and for each component the stored channel to read (4 for 0, 5
/// for 1).
struct SOrder
{
    uint32_t nOrder;
    uint32_t nChannels;
    int stored[4];
    uint8_t read[4];
    bool bBorderAlpha; ///< the border's alpha is 1
};

const SOrder s_Orders[] = {
    {CL_R, 1, {0, s_nNone, s_nNone, s_nNone}, {0, 4, 4, 5}, true},
    {CL_Rx, 1, {0, s_nNone, s_nNone, s_nNone}, {0, 4, 4, 5}, false},
    {CL_A, 1, {3, s_nNone, s_nNone, s_nNone}, {4, 4, 4, 0}, false},
    {CL_INTENSITY, 1, {0, s_nNone, s_nNone, s_nNone}, {0, 0, 0, 0}, false},
    {CL_LUMINANCE, 1, {0, s_nNone, s_nNone, s_nNone}, {0, 0, 0, 5}, true},
    {CL_RG, 2, {0, 1, s_nNone, s_nNone}, {0, 1, 4, 5}, true},
    {CL_RGx, 2, {0, 1, s_nNone, s_nNone}, {0, 1, 4, 5}, false},
    {CL_RA, 2, {0, 3, s_nNone, s_nNone}, {0, 4, 4, 1}, false},
    {CL_RGB, 3, {0, 1, 2, s_nNone}, {0, 1, 2, 5}, true},
    {CL_RGBx, 3, {0, 1, 2, s_nNone}, {0, 1, 2, 5}, false},
    {CL_RGBA, 4, {0, 1, 2, 3}, {0, 1, 2, 3}, false},
    {CL_BGRA, 4, {2, 1, 0, 3}, {2, 1, 0, 3}, false},
    {CL_ARGB, 4, {3, 0, 1, 2}, {1, 2, 3, 0}, false},
};

const SOrder* FindOrder(uint32_t nOrder)
{
    for (const SOrder& order : s_Orders)
    {
        if (order.nOrder == nOrder)
        {
            return &order;
        }
    }
    return nullptr;
}

uint32_t ChannelBytes(uint32_t nType)
{
    switch (nType)
    {
    case CL_SNORM_INT8:
    case CL_UNORM_INT8:
    case CL_SIGNED_INT8:
    case CL_UNSIGNED_INT8:
        return 1;
    case CL_SNORM_INT16:
    case CL_UNORM_INT16:
    case CL_SIGNED_INT16:
    case CL_UNSIGNED_INT16:
    case CL_HALF_FLOAT:
        return 2;
    case CL_SIGNED_INT32:
    case CL_UNSIGNED_INT32:
    case CL_FLOAT:
        return 4;
    default:
        return 0;
    }
}

/// Bit fields of the types that pack three channels into one word, from r to b.
struct SPacked
{
    uint32_t nType;
    uint32_t nBytes;
    uint32_t nShift[3];
    uint32_t nMax[3];
};

const SPacked s_Packed[] = {
    {CL_UNORM_SHORT_565, 2, {11, 5, 0}, {31, 63, 31}},
    {CL_UNORM_SHORT_555, 2, {10, 5, 0}, {31, 31, 31}},
    {CL_UNORM_INT_101010, 4, {20, 10, 0}, {1023, 1023, 1023}},
};

const SPacked* FindPacked(uint32_t nType)
{
    for (const SPacked& packed : s_Packed)
    {
        if (packed.nType == nType)
        {
            return &packed;
        }
    }
    return nullptr;
}

template <class TValue>
TValue Get(const unsigned char* p)
{
    TValue value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

template <class TValue>
void Put(unsigned char* p, TValue value)
{
    std::memcpy(p, &value, sizeof value);
}

uint32_t ReadChannel(const unsigned char* p, uint32_t nType)
{
    switch (nType)
    {
    case CL_SNORM_INT8:
        return AsWord(std::fmax(Get<int8_t>(p) / 127.0f, -1.0f));
    case CL_SNORM_INT16:
        return AsWord(std::fmax(Get<int16_t>(p) / 32767.0f, -1.0f));
    case CL_UNORM_INT8:
        return AsWord(*p / 255.0f);
    case CL_UNORM_INT16:
        return AsWord(Get<uint16_t>(p) / 65535.0f);
    case CL_SIGNED_INT8:
        return static_cast<uint32_t>(Get<int8_t>(p));
    case CL_SIGNED_INT16:
        return static_cast<uint32_t>(Get<int16_t>(p));
    case CL_UNSIGNED_INT8:
        return *p;
    case CL_UNSIGNED_INT16:
        return Get<uint16_t>(p);
    case CL_HALF_FLOAT:
        return AsWord(HalfToFloat(Get<uint16_t>(p)));
    default:
        return Get<uint32_t>(p);
    }
}

/// NaN counts as 0.
float ClampTo(float f, float fLow, float fHigh)
{
    if (f != f)
    {
        return 0.0f;
    }
    return f < fLow ? fLow : (f > fHigh ? fHigh : f);
}

int32_t ClampInt(uint32_t n, int32_t nLow, int32_t nHigh)
{
    const int32_t i = static_cast<int32_t>(n);
    return i < nLow ? nLow : (i > nHigh ? nHigh : i);
}

void WriteChannel(unsigned char* p, uint32_t nType, uint32_t n)
{
    const float f = AsFloat(n);
    switch (nType)
    {
    case CL_SNORM_INT8:
        Put(p, static_cast<int8_t>(std::rint(ClampTo(f, -1.0f, 1.0f) * 127.0f)));
        break;
    case CL_SNORM_INT16:
        Put(p, static_cast<int16_t>(std::rint(ClampTo(f, -1.0f, 1.0f) * 32767.0f)));
        break;
    case CL_UNORM_INT8:
        Put(p, static_cast<uint8_t>(std::rint(ClampTo(f, 0.0f, 1.0f) * 255.0f)));
        break;
    case CL_UNORM_INT16:
        Put(p, static_cast<uint16_t>(std::rint(ClampTo(f, 0.0f, 1.0f) * 65535.0f)));
        break;
    case CL_SIGNED_INT8:
        Put(p, static_cast<int8_t>(ClampInt(n, -128, 127)));
        break;
    case CL_SIGNED_INT16:
        Put(p, static_cast<int16_t>(ClampInt(n, -32768, 32767)));
        break;
    case CL_UNSIGNED_INT8:
        Put(p, static_cast<uint8_t>(n > 0xFF ? 0xFF : n));
        break;
    case CL_UNSIGNED_INT16:
        Put(p, static_cast<uint16_t>(n > 0xFFFF ? 0xFFFF : n));
        break;
    case CL_HALF_FLOAT:
        Put(p, static_cast<uint16_t>(FloatToHalf(f, RoundNearest)));
        break;
    default:
        Put(p, n);
        break;
    }
}

} // namespace

size_t TexelBytes(uint32_t nChannelOrder, uint32_t nChannelType)
{
    const SOrder* const pOrder = FindOrder(nChannelOrder);
    if (!pOrder)
    {
        return 0;
    }
    const SPacked* const pPacked = FindPacked(nChannelType);
    return pPacked ? pPacked->nBytes : pOrder->nChannels * ChannelBytes(nChannelType);
}

bool IsIntegerChannel(uint32_t nChannelType)
{
    switch (nChannelType)
    {
    case CL_SIGNED_INT8:
    case CL_SIGNED_INT16:
    case CL_SIGNED_INT32:
    case CL_UNSIGNED_INT8:
    case CL_UNSIGNED_INT16:
    case CL_UNSIGNED_INT32:
        return true;
    default:
        return false;
    }
}

STexel ReadTexel(const unsigned char* pData, uint32_t nChannelOrder, uint32_t nChannelType)
{
    STexel texel;
    const SOrder* const pOrder = FindOrder(nChannelOrder);
    if (!pOrder)
    {
        return texel;
    }
    const uint32_t nOne = IsIntegerChannel(nChannelType) ? 1 : AsWord(1.0f);
    uint32_t nChannels[6] = {0, 0, 0, 0, 0, nOne};
    const SPacked* const pPacked = FindPacked(nChannelType);
    for (uint32_t n = 0; n < pOrder->nChannels && n < 4; ++n)
    {
        if (!pPacked)
        {
            nChannels[n] = ReadChannel(pData + n * ChannelBytes(nChannelType), nChannelType);
            continue;
        }
        const uint32_t nWord = pPacked->nBytes == 2 ? Get<uint16_t>(pData) : Get<uint32_t>(pData);
        if (n < 3)
        {
            nChannels[n] = AsWord(static_cast<float>((nWord >> pPacked->nShift[n]) & pPacked->nMax[n]) /
                                  static_cast<float>(pPacked->nMax[n]));
        }
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        texel.w[n] = nChannels[pOrder->read[n]];
    }
    return texel;
}

void WriteTexel(unsigned char* pData, uint32_t nChannelOrder, uint32_t nChannelType, const STexel& texel)
{
    const SOrder* const pOrder = FindOrder(nChannelOrder);
    if (!pOrder)
    {
        return;
    }
    if (const SPacked* const pPacked = FindPacked(nChannelType))
    {
        uint32_t nWord = 0;
        for (uint32_t n = 0; n < 3; ++n)
        {
            const float fMax = static_cast<float>(pPacked->nMax[n]);
            nWord |= static_cast<uint32_t>(std::rint(ClampTo(AsFloat(texel.w[n]), 0.0f, 1.0f) * fMax))
                     << pPacked->nShift[n];
        }
        std::memcpy(pData, &nWord, pPacked->nBytes);
        return;
    }
    for (uint32_t n = 0; n < pOrder->nChannels; ++n)
    {
        WriteChannel(pData + n * ChannelBytes(nChannelType), nChannelType,
                     texel.w[static_cast<size_t>(pOrder->stored[n])]);
    }
}

STexel BorderTexel(uint32_t nChannelOrder, uint32_t nChannelType)
{
    STexel texel;
    const SOrder* const pOrder = FindOrder(nChannelOrder);
    if (pOrder && pOrder->bBorderAlpha)
    {
        texel.w[3] = IsIntegerChannel(nChannelType) ? 1 : AsWord(1.0f);
    }
    return texel;
}

} // namespace KestrelPlatform
