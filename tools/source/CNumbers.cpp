#include "tools/source/CNumbers.h"

namespace KestrelTool
{

SHalf::SHalf(double fValue)
{
    uint64_t nDouble;
    std::memcpy(&nDouble, &fValue, sizeof(nDouble));
    const uint16_t nSign = static_cast<uint16_t>(nDouble >> 48 & 0x8000);
    const double fMagnitude = std::fabs(fValue);
    const double fTooLarge = 65520; // would be rounded to more than the largest half
    if (std::isnan(fValue))
    {
        nBits = static_cast<uint16_t>(nSign | 0x7E00);
        return;
    }
    if (fMagnitude >= fTooLarge)
    {
        nBits = static_cast<uint16_t>(nSign | 0x7C00);
        return;
    }
    // The unit in the last place is 2^-10 of the number's power of two, but at least 2^-24.
    const int nExponent = fMagnitude < std::ldexp(1.0, -14) ? -14 : std::ilogb(fMagnitude);
    const auto nSteps = static_cast<unsigned int>(std::nearbyint(std::ldexp(fMagnitude, 10 - nExponent)));
    const unsigned int nBase = static_cast<unsigned int>(nExponent + 14) << 10;
    nBits = static_cast<uint16_t>(nSign | (nBase + nSteps)); // a carry increments the exponent
}

SHalf::operator double() const
{
    const int nExponent = nBits >> 10 & 31;
    const double fFraction = nBits & 1023;
    const double fSign = (nBits & 0x8000) != 0 ? -1.0 : 1.0;
    if (nExponent == 31)
    {
        return fFraction != 0 ? std::numeric_limits<double>::quiet_NaN()
                              : fSign * std::numeric_limits<double>::infinity();
    }
    return fSign * (nExponent == 0 ? std::ldexp(fFraction, -24) : std::ldexp(1024 + fFraction, nExponent - 25));
}

bool IsNumberTrue(const SSourceType& type, const unsigned char* pNumber)
{
    bool bTrue = false;
    VisitScalar(type,
                [&](auto zero)
                {
                    typedef decltype(zero) T;
                    bTrue = ConvertNumber<double>(LoadAs<T>(pNumber)) != 0;
                });
    return bTrue;
}

void ConvertNumbers(const SSourceType& from, const unsigned char* pFrom, const SSourceType& to, unsigned char* pTo,
                    size_t nCount)
{
    if (IsBool(to))
    {
        for (size_t n = 0; n < nCount; ++n)
        {
            pTo[n] = IsNumberTrue(from, pFrom + n * from.nSize) ? 1 : 0;
        }
        return;
    }
    VisitScalar(from,
                [&](auto first)
                {
                    VisitScalar(to,
                                [&](auto second)
                                {
                                    typedef decltype(first) From;
                                    typedef decltype(second) To;
                                    for (size_t n = 0; n < nCount; ++n)
                                    {
                                        const From value = LoadAs<From>(pFrom + n * sizeof(From));
                                        StoreAs(pTo + n * sizeof(To), ConvertNumber<To>(value));
                                    }
                                });
                });
}

} // namespace KestrelTool
