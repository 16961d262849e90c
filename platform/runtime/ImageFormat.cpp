#include "platform/runtime/ImageFormat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

enum class EClass
{
    Signed,   ///< signed integers
    Unsigned, ///< unsigned integers
    Normal,   ///< normalised, 8 or 16 bits
    Float,
    Packed ///< all channels in one word
};

struct SChannelType
{
    cl_channel_type m_eType;
    EClass m_eClass;
    size_t m_nBytes; ///< of a channel, or of the texel if packed
    bool m_bSigned;
};

constexpr SChannelType s_types[] = {
    {CL_SNORM_INT8, EClass::Normal, 1, true},
    {CL_SNORM_INT16, EClass::Normal, 2, true},
    {CL_UNORM_INT8, EClass::Normal, 1, false},
    {CL_UNORM_INT16, EClass::Normal, 2, false},
    {CL_UNORM_SHORT_565, EClass::Packed, 2, false},
    {CL_UNORM_SHORT_555, EClass::Packed, 2, false},
    {CL_UNORM_INT_101010, EClass::Packed, 4, false},
    {CL_SIGNED_INT8, EClass::Signed, 1, true},
    {CL_SIGNED_INT16, EClass::Signed, 2, true},
    {CL_SIGNED_INT32, EClass::Signed, 4, true},
    {CL_UNSIGNED_INT8, EClass::Unsigned, 1, false},
    {CL_UNSIGNED_INT16, EClass::Unsigned, 2, false},
    {CL_UNSIGNED_INT32, EClass::Unsigned, 4, false},
    {CL_HALF_FLOAT, EClass::Float, 2, true},
    {CL_FLOAT, EClass::Float, 4, true},
};

/// The types that may be combined with an order.
enum class ETypes
{
    All,      ///< all but the packed ones
    Bytes,    ///< 8-bit channels
    Filtered, ///< normalised and floating point
    Packed
};

struct SChannelOrder
{
    cl_channel_order m_eOrder;
    const char* m_pszChannels; ///< the colour of each channel in memory; x for padding
    ETypes m_eTypes;
};

/// Rx and RGx are left out: OpenCL allows no texel size for their padded channels.
constexpr SChannelOrder s_orders[] = {
    {CL_R, "r", ETypes::All},
    {CL_A, "a", ETypes::All},
    {CL_RG, "rg", ETypes::All},
    {CL_RA, "ra", ETypes::All},
    {CL_RGBA, "rgba", ETypes::All},
    {CL_BGRA, "bgra", ETypes::Bytes},
    {CL_ARGB, "argb", ETypes::Bytes},
    {CL_RGB, "rgb", ETypes::Packed},
    {CL_RGBx, "rgbx", ETypes::Packed},
    {CL_INTENSITY, "r", ETypes::Filtered},
    {CL_LUMINANCE, "r", ETypes::Filtered},
};

const SChannelType* FindType(cl_channel_type eType)
{
    const auto it =
        std::find_if(std::begin(s_types), std::end(s_types), [=](const auto& type) { return type.m_eType == eType; });
    return it == std::end(s_types) ? nullptr : &*it;
}

const SChannelOrder* FindOrder(cl_channel_order eOrder)
{
    const auto it = std::find_if(std::begin(s_orders), std::end(s_orders),
                                 [=](const auto& order) { return order.m_eOrder == eOrder; });
    return it == std::end(s_orders) ? nullptr : &*it;
}

bool GoTogether(const SChannelOrder& order, const SChannelType& type)
{
    switch (order.m_eTypes)
    {
    case ETypes::All:
        return type.m_eClass != EClass::Packed;
    case ETypes::Bytes:
        return type.m_eClass != EClass::Packed && type.m_nBytes == 1;
    case ETypes::Filtered:
        return type.m_eClass == EClass::Normal || type.m_eClass == EClass::Float;
    case ETypes::Packed:
        return type.m_eClass == EClass::Packed;
    }
    return false;
}

/// The index of a channel's colour, or 4 for none.
size_t ColorIndex(char chChannel)
{
    const char* pszAll = "rgba";
    const char* pFound = std::strchr(pszAll, chChannel);
    return pFound ? static_cast<size_t>(pFound - pszAll) : 4;
}

/// Rounds to the nearest integer in a range, NaN to 0.
int64_t RoundTo(double dValue, int64_t nMin, int64_t nMax)
{
    if (std::isnan(dValue))
    {
        return 0;
    }
    const double dClamped = std::min(std::max(dValue, static_cast<double>(nMin)), static_cast<double>(nMax));
    return static_cast<int64_t>(std::nearbyint(dClamped));
}

uint16_t ToHalf(float fValue)
{
    uint32_t nBits = 0;
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    const auto nSign = static_cast<uint16_t>((nBits >> 16) & 0x8000u);
    if (std::isnan(fValue))
    {
        return nSign | 0x7E00u;
    }
    const float fAbsolute = std::fabs(fValue);
    if (fAbsolute >= 65520.0f)
    {
        return nSign | 0x7C00u;
    }
    if (fAbsolute < 6.103515625e-5f)
    { // { // below the smallest normal half: count in units of 2^-24
        return nSign | static_cast<uint16_t>(std::nearbyint(std::ldexp(fAbsolute, 24)));
    }
    int nExponent = 0;
    const float fFraction = std::frexp(fAbsolute, &nExponent); // in [0.5, 1)
    const auto nMantissa = static_cast<uint32_t>(std::nearbyint(std::ldexp(fFraction, 11)));
    // A mantissa that is rounded up to 2048 carries into the exponent.
    return nSign | static_cast<uint16_t>((static_cast<uint32_t>(nExponent + 13) << 10) + nMantissa);
}

int64_t ReadIntegerChannel(const SChannelType& type, const void* pColor, size_t nIndex)
{
    const int64_t nLimit = int64_t{1} << (8 * type.m_nBytes);
    if (type.m_bSigned)
    {
        const int64_t nValue = static_cast<const cl_int*>(pColor)[nIndex];
        return std::min(std::max(nValue, -nLimit / 2), nLimit / 2 - 1);
    }
    const int64_t nValue = static_cast<const cl_uint*>(pColor)[nIndex];
    return std::min(nValue, nLimit - 1);
}

/// The bits of one channel of a type that isn't packed.
uint32_t EncodeChannel(const SChannelType& type, const void* pColor, size_t nIndex)
{
    if (type.m_eClass == EClass::Signed || type.m_eClass == EClass::Unsigned)
    {
        return static_cast<uint32_t>(ReadIntegerChannel(type, pColor, nIndex));
    }
    const float fValue = static_cast<const cl_float*>(pColor)[nIndex];
    if (type.m_eClass == EClass::Normal)
    {
        const int64_t nMax = (int64_t{1} << (8 * type.m_nBytes - (type.m_bSigned ? 1 : 0))) - 1;
        return static_cast<uint32_t>(
            RoundTo(static_cast<double>(fValue) * static_cast<double>(nMax), type.m_bSigned ? -nMax - 1 : 0, nMax));
    }
    if (type.m_nBytes == 2)
    {
        return ToHalf(fValue);
    }
    uint32_t nBits = 0;
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    return nBits;
}

uint32_t EncodePacked(cl_channel_type eType, const float* pColor)
{
    const unsigned int nGreenBits = eType == CL_UNORM_SHORT_565 ? 6 : eType == CL_UNORM_SHORT_555 ? 5 : 10;
    const unsigned int nOtherBits = eType == CL_UNORM_INT_101010 ? 10 : 5;
    const auto channel = [pColor](size_t nIndex, unsigned int nBits)
    {
        const int64_t nMax = (int64_t{1} << nBits) - 1;
        return static_cast<uint32_t>(RoundTo(static_cast<double>(pColor[nIndex]) * static_cast<double>(nMax), 0, nMax));
    };
    return (channel(0, nOtherBits) << (nGreenBits + nOtherBits)) | (channel(1, nGreenBits) << nOtherBits) |
           channel(2, nOtherBits);
}

} // namespace

cl_int CheckImageFormat(const cl_image_format& format)
{
    const SChannelType* pType = FindType(format.image_channel_data_type);
    const SChannelOrder* pOrder = FindOrder(format.image_channel_order);
    if (!pType || !pOrder)
    {
        return CL_INVALID_IMAGE_FORMAT_DESCRIPTOR;
    }
    return GoTogether(*pOrder, *pType) ? CL_SUCCESS : CL_INVALID_IMAGE_FORMAT_DESCRIPTOR;
}

size_t GetTexelSize(const cl_image_format& format)
{
    const SChannelType& type = *FindType(format.image_channel_data_type);
    const size_t nChannels =
        type.m_eClass == EClass::Packed ? 1 : std::strlen(FindOrder(format.image_channel_order)->m_pszChannels);
    return type.m_nBytes * nChannels;
}

const std::vector<cl_image_format>& GetImageFormats()
{
    static const std::vector<cl_image_format>& s_vFormats = *[]
    {
        auto* pFormats = new std::vector<cl_image_format>;
        for (const SChannelOrder& order : s_orders)
        {
            for (const SChannelType& type : s_types)
            {
                if (GoTogether(order, type))
                {
                    pFormats->push_back({order.m_eOrder, type.m_eType});
                }
            }
        }
        return pFormats;
    }();
    return s_vFormats;
}

std::vector<unsigned char> EncodeColor(const cl_image_format& format, const void* pColor)
{
    const SChannelType& type = *FindType(format.image_channel_data_type);
    std::vector<unsigned char> vTexel(GetTexelSize(format), 0);
    if (type.m_eClass == EClass::Packed)
    {
        const uint32_t nWord = EncodePacked(type.m_eType, static_cast<const float*>(pColor));
        std::memcpy(vTexel.data(), &nWord, type.m_nBytes);
        return vTexel;
    }
    const char* pszChannels = FindOrder(format.image_channel_order)->m_pszChannels;
    for (size_t i = 0; pszChannels[i]; ++i)
    {
        const size_t nIndex = ColorIndex(pszChannels[i]);
        if (nIndex == 4)
        {
            continue;
        }
        const uint32_t nBits = EncodeChannel(type, pColor, nIndex);
        std::memcpy(vTexel.data() + i * type.m_nBytes, &nBits, type.m_nBytes);
    }
    return vTexel;
}

} // namespace KestrelPlatform::Runtime
