#ifndef KESTREL_TOOLS_SOURCE_CNUMBERS_H
#define KESTREL_TOOLS_SOURCE_CNUMBERS_H

#include "tools/source/CTypes.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace KestrelTool
{

/// A 16-bit float.
struct SHalf
{
    uint16_t nBits = 0;

    SHalf() = default;
    /// Rounds to nearest, ties to even.
    explicit SHalf(double fValue);
    explicit operator double() const;
};

template <typename T>
T LoadAs(const unsigned char* pBytes)
{
    T value;
    std::memcpy(&value, pBytes, sizeof(value));
    return value;
}

template <typename T>
void StoreAs(unsigned char* pBytes, T value)
{
    std::memcpy(pBytes, &value, sizeof(value));
}

/// Calls the visitor with a value of the C++ type for a scalar type; pointers become unsigned integers.
template <typename Visitor>
void VisitScalar(const SSourceType& type, const Visitor& visitor)
{
    const bool bSigned = type.eKind == SSourceType::Signed;
    if (type.eKind == SSourceType::Float)
    {
        return type.nSize == 8 ? visitor(double()) : type.nSize == 4 ? visitor(float()) : visitor(SHalf());
    }
    switch (type.nSize)
    {
    case 1:
        return bSigned ? visitor(int8_t()) : visitor(uint8_t());
    case 2:
        return bSigned ? visitor(int16_t()) : visitor(uint16_t());
    case 4:
        return bSigned ? visitor(int32_t()) : visitor(uint32_t());
    default:
        return bSigned ? visitor(int64_t()) : visitor(uint64_t());
    }
}

/// Converts like C. A float out of an integer's range becomes the nearest integer, a NaN becomes 0.
template <typename To, typename From>
To ConvertNumber(From value)
{
    if constexpr (std::is_same_v<From, SHalf>)
    {
        return ConvertNumber<To>(static_cast<double>(value));
    }
    else if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>)
    {
        const double fLimit = std::ldexp(1.0, std::numeric_limits<To>::digits);
        const double fValue = value;
        if (std::isnan(fValue))
        {
            return 0;
        }
        return fValue >= fLimit                                                ? std::numeric_limits<To>::max()
               : fValue <= static_cast<double>(std::numeric_limits<To>::min()) ? std::numeric_limits<To>::min()
                                                                               : static_cast<To>(fValue);
    }
    else if constexpr (std::is_same_v<To, SHalf>)
    {
        return SHalf(static_cast<double>(value));
    }
    else
    {
        return static_cast<To>(value);
    }
}

/// Converts consecutive numbers. Source and target mustn't overlap.
void ConvertNumbers(const SSourceType& from, const unsigned char* pFrom, const SSourceType& to, unsigned char* pTo,
                    size_t nCount);
bool IsNumberTrue(const SSourceType& type, const unsigned char* pNumber);

} // namespace KestrelTool

#endif
