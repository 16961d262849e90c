#include "tools/session/debug/BuiltIns.h"

#include "tools/source/CNumbers.h"

#include <algorithm>
#include <cmath>

namespace KestrelTool
{

namespace
{

typedef float (*FloatFunction)(float, float, float);
typedef double (*DoubleFunction)(double, double, double);
typedef int64_t (*SignedFunction)(int64_t, int64_t, int64_t);
typedef uint64_t (*UnsignedFunction)(uint64_t, uint64_t, uint64_t);

template <typename Function>
SBuiltIn OfFloats(const char* pszName, size_t nArguments, Function function)
{
    SBuiltIn builtIn{pszName, SBuiltIn::Float, nArguments};
    builtIn.pFloat = static_cast<FloatFunction>(function);
    builtIn.pDouble = static_cast<DoubleFunction>(function);
    return builtIn;
}

template <typename Function>
SBuiltIn OfNumbers(const char* pszName, size_t nArguments, Function function)
{
    SBuiltIn builtIn = OfFloats(pszName, nArguments, function);
    builtIn.eKind = SBuiltIn::Number;
    builtIn.pSigned = static_cast<SignedFunction>(function);
    builtIn.pUnsigned = static_cast<UnsignedFunction>(function);
    return builtIn;
}

SBuiltIn OfBits(const char* pszName, size_t nArguments, uint64_t (*pBits)(uint64_t, uint64_t, unsigned int))
{
    SBuiltIn builtIn{pszName, SBuiltIn::Bits, nArguments};
    builtIn.pBits = pBits;
    return builtIn;
}

SBuiltIn OfTest(const char* pszName, bool (*pTest)(double))
{
    SBuiltIn builtIn{pszName, SBuiltIn::Test, 1};
    builtIn.pTest = pTest;
    return builtIn;
}

template <typename T>
T ClampTo(T value, T low, T high)
{
    return std::min(std::max(value, low), high);
}

const SBuiltIn s_BuiltIns[] = {
    {"get_global_id", SBuiltIn::WorkItem, 1, SBuiltIn::GlobalId},
    {"get_local_id", SBuiltIn::WorkItem, 1, SBuiltIn::LocalId},
    {"get_group_id", SBuiltIn::WorkItem, 1, SBuiltIn::GroupId},
    {"get_global_size", SBuiltIn::WorkItem, 1, SBuiltIn::GlobalSize},
    {"get_local_size", SBuiltIn::WorkItem, 1, SBuiltIn::LocalSize},
    {"get_num_groups", SBuiltIn::WorkItem, 1, SBuiltIn::Groups},
    {"get_global_offset", SBuiltIn::WorkItem, 1, SBuiltIn::GlobalOffset},
    {"get_work_dim", SBuiltIn::WorkItem, 0, SBuiltIn::Dimensions},
    {"get_global_linear_id", SBuiltIn::WorkItem, 0, SBuiltIn::LinearGlobalId},
    {"get_local_linear_id", SBuiltIn::WorkItem, 0, SBuiltIn::LinearLocalId},

    OfNumbers("min", 2, [](auto a, auto b, auto) { return b < a ? b : a; }),
    OfNumbers("max", 2, [](auto a, auto b, auto) { return a < b ? b : a; }),
    OfNumbers("clamp", 3, [](auto a, auto b, auto c) { return ClampTo(a, b, c); }),
    OfNumbers("abs", 1, [](auto a, auto, auto) { return a < 0 ? decltype(a)(0) - a : a; }),
    OfNumbers("abs_diff", 2, [](auto a, auto b, auto) { return a < b ? b - a : a - b; }),

    OfBits("popcount", 1,
           [](uint64_t a, uint64_t, unsigned int) { return static_cast<uint64_t>(__builtin_popcountll(a)); }),
    OfBits("clz", 1,
           [](uint64_t a, uint64_t, unsigned int nBits)
           { return a == 0 ? uint64_t(nBits) : static_cast<uint64_t>(__builtin_clzll(a)) - (64 - nBits); }),
    OfBits("rotate", 2,
           [](uint64_t a, uint64_t b, unsigned int nBits)
           {
               const uint64_t nBy = b % nBits;
               return nBy == 0 ? a : a << nBy | a >> (nBits - nBy);
           }),

    OfFloats("sqrt", 1, [](auto a, auto, auto) { return std::sqrt(a); }),
    OfFloats("rsqrt", 1, [](auto a, auto, auto) { return 1 / std::sqrt(a); }),
    OfFloats("cbrt", 1, [](auto a, auto, auto) { return std::cbrt(a); }),
    OfFloats("fabs", 1, [](auto a, auto, auto) { return std::fabs(a); }),
    OfFloats("floor", 1, [](auto a, auto, auto) { return std::floor(a); }),
    OfFloats("ceil", 1, [](auto a, auto, auto) { return std::ceil(a); }),
    OfFloats("trunc", 1, [](auto a, auto, auto) { return std::trunc(a); }),
    OfFloats("round", 1, [](auto a, auto, auto) { return std::round(a); }),
    OfFloats("rint", 1, [](auto a, auto, auto) { return std::nearbyint(a); }),
    OfFloats("exp", 1, [](auto a, auto, auto) { return std::exp(a); }),
    OfFloats("exp2", 1, [](auto a, auto, auto) { return std::exp2(a); }),
    OfFloats("log", 1, [](auto a, auto, auto) { return std::log(a); }),
    OfFloats("log2", 1, [](auto a, auto, auto) { return std::log2(a); }),
    OfFloats("log10", 1, [](auto a, auto, auto) { return std::log10(a); }),
    OfFloats("sin", 1, [](auto a, auto, auto) { return std::sin(a); }),
    OfFloats("cos", 1, [](auto a, auto, auto) { return std::cos(a); }),
    OfFloats("tan", 1, [](auto a, auto, auto) { return std::tan(a); }),
    OfFloats("asin", 1, [](auto a, auto, auto) { return std::asin(a); }),
    OfFloats("acos", 1, [](auto a, auto, auto) { return std::acos(a); }),
    OfFloats("atan", 1, [](auto a, auto, auto) { return std::atan(a); }),
    OfFloats("sinh", 1, [](auto a, auto, auto) { return std::sinh(a); }),
    OfFloats("cosh", 1, [](auto a, auto, auto) { return std::cosh(a); }),
    OfFloats("tanh", 1, [](auto a, auto, auto) { return std::tanh(a); }),
    OfFloats("sign", 1, [](auto a, auto, auto) { return a < 0   ? decltype(a)(-1)
                                                        : a > 0 ? decltype(a)(1)
                                                                : a * 0; }),
    OfFloats("atan2", 2, [](auto a, auto b, auto) { return std::atan2(a, b); }),
    OfFloats("pow", 2, [](auto a, auto b, auto) { return std::pow(a, b); }),
    OfFloats("fmod", 2, [](auto a, auto b, auto) { return std::fmod(a, b); }),
    OfFloats("fmin", 2, [](auto a, auto b, auto) { return std::fmin(a, b); }),
    OfFloats("fmax", 2, [](auto a, auto b, auto) { return std::fmax(a, b); }),
    OfFloats("hypot", 2, [](auto a, auto b, auto) { return std::hypot(a, b); }),
    OfFloats("copysign", 2, [](auto a, auto b, auto) { return std::copysign(a, b); }),
    OfFloats("step", 2, [](auto a, auto b, auto) { return decltype(a)(b < a ? 0 : 1); }),
    OfFloats("fma", 3, [](auto a, auto b, auto c) { return std::fma(a, b, c); }),
    OfFloats("mad", 3, [](auto a, auto b, auto c) { return a * b + c; }),
    OfFloats("mix", 3, [](auto a, auto b, auto c) { return a + (b - a) * c; }),
    OfFloats("smoothstep", 3,
             [](auto a, auto b, auto c)
             {
                 const auto t = ClampTo((c - a) / (b - a), decltype(a)(0), decltype(a)(1));
                 return t * t * (3 - 2 * t);
             }),

    OfTest("isnan", [](double a) { return std::isnan(a); }),
    OfTest("isinf", [](double a) { return std::isinf(a); }),
    OfTest("isfinite", [](double a) { return std::isfinite(a); }),
    OfTest("signbit", [](double a) { return std::signbit(a); }),

    {"dot", SBuiltIn::Geometric, 2, SBuiltIn::Dot},
    {"length", SBuiltIn::Geometric, 1, SBuiltIn::Length},
    {"distance", SBuiltIn::Geometric, 2, SBuiltIn::Distance},
    {"normalize", SBuiltIn::Geometric, 1, SBuiltIn::Normalize},
    {"cross", SBuiltIn::Geometric, 2, SBuiltIn::Cross},
};

template <typename T>
void CallOnFloat(const SBuiltIn& builtIn, const T values[3], unsigned char* pResult)
{
    if constexpr (std::is_same_v<T, float>)
    {
        StoreAs(pResult, builtIn.pFloat(values[0], values[1], values[2]));
    }
    else if constexpr (std::is_same_v<T, double>)
    {
        StoreAs(pResult, builtIn.pDouble(values[0], values[1], values[2]));
    }
    else
    {
        const auto get = [&](size_t n) { return static_cast<float>(static_cast<double>(values[n])); };
        StoreAs(pResult, SHalf(builtIn.pFloat(get(0), get(1), get(2))));
    }
}

template <typename T>
void CallOnInteger(const SBuiltIn& builtIn, const T values[3], unsigned char* pResult)
{
    if (builtIn.pBits != nullptr)
    {
        typedef std::make_unsigned_t<T> Bits;
        StoreAs(pResult, static_cast<T>(
                             builtIn.pBits(static_cast<Bits>(values[0]), static_cast<Bits>(values[1]), 8 * sizeof(T))));
    }
    else if constexpr (std::is_signed_v<T>)
    {
        StoreAs(pResult, static_cast<T>(builtIn.pSigned(values[0], values[1], values[2])));
    }
    else
    {
        StoreAs(pResult, static_cast<T>(builtIn.pUnsigned(values[0], values[1], values[2])));
    }
}

void CallOnNumbers(const SBuiltIn& builtIn, const SSourceType& type, const unsigned char* const pArguments[3],
                   unsigned char* pResults, size_t nNumbers)
{
    VisitScalar(type,
                [&](auto zero)
                {
                    typedef decltype(zero) T;
                    for (size_t n = 0; n < nNumbers; ++n)
                    {
                        T values[3] = {};
                        for (size_t nArgument = 0; nArgument < builtIn.nArguments; ++nArgument)
                        {
                            values[nArgument] = LoadAs<T>(pArguments[nArgument] + n * sizeof(T));
                        }
                        if constexpr (std::is_integral_v<T>)
                        {
                            CallOnInteger(builtIn, values, pResults + n * sizeof(T));
                        }
                        else
                        {
                            CallOnFloat(builtIn, values, pResults + n * sizeof(T));
                        }
                    }
                });
}

template <typename T>
T SumOfProducts(const T* pLeft, const T* pRight, size_t nCount)
{
    T fSum = 0;
    for (size_t n = 0; n < nCount; ++n)
    {
        fSum += pLeft[n] * pRight[n];
    }
    return fSum;
}

/// Works on one work-item; vectors have up to 16 numbers.
template <typename T>
void CallOnVectors(unsigned int nWhich, const T* pLeft, const T* pRight, size_t nCount, T* pResult)
{
    T difference[16] = {};
    switch (nWhich)
    {
    case SBuiltIn::Dot:
        pResult[0] = SumOfProducts(pLeft, pRight, nCount);
        return;
    case SBuiltIn::Length:
        pResult[0] = std::sqrt(SumOfProducts(pLeft, pLeft, nCount));
        return;
    case SBuiltIn::Distance:
        std::transform(pLeft, pLeft + nCount, pRight, difference, [](T a, T b) { return a - b; });
        pResult[0] = std::sqrt(SumOfProducts(difference, difference, nCount));
        return;
    case SBuiltIn::Normalize:
    {
        const T fLength = std::sqrt(SumOfProducts(pLeft, pLeft, nCount));
        std::transform(pLeft, pLeft + nCount, pResult, [=](T a) { return fLength == 0 ? a : a / fLength; });
        return;
    }
    default:
        for (size_t n = 0; n < 3; ++n)
        {
            const size_t nNext = (n + 1) % 3;
            const size_t nLast = (n + 2) % 3;
            pResult[n] = pLeft[nNext] * pRight[nLast] - pLeft[nLast] * pRight[nNext];
        }
    }
}

template <typename T>
void CallGeometric(const SBuiltIn& builtIn, const SSourceType& argument, const unsigned char* const pArguments[3],
                   const SSourceType& result, unsigned char* pResults, size_t nCount)
{
    const size_t nNumbers = IsVector(argument) ? argument.nCount : 1; // 3 for a vector of three, not 4
    for (size_t n = 0; n < nCount; ++n)
    {
        T left[16] = {};
        T right[16] = {};
        T results[16] = {};
        std::memcpy(left, pArguments[0] + n * argument.nSize, nNumbers * sizeof(T));
        if (builtIn.nArguments == 2)
        {
            std::memcpy(right, pArguments[1] + n * argument.nSize, nNumbers * sizeof(T));
        }
        CallOnVectors(builtIn.nWhich, left, right, nNumbers, results);
        std::memcpy(pResults + n * result.nSize, results, result.nSize);
    }
}

} // namespace

const SBuiltIn* FindBuiltIn(const std::string& strName)
{
    const auto it = std::find_if(std::begin(s_BuiltIns), std::end(s_BuiltIns),
                                 [&](const SBuiltIn& builtIn) { return strName == builtIn.pszName; });
    return it != std::end(s_BuiltIns) ? it : nullptr;
}

std::string ListBuiltIns()
{
    std::string strNames;
    for (const SBuiltIn& builtIn : s_BuiltIns)
    {
        strNames += (strNames.empty() ? "" : " ") + std::string(builtIn.pszName);
    }
    return strNames;
}

bool NeedsLocalSize(const SBuiltIn& builtIn)
{
    static const unsigned int s_Needing[] = {SBuiltIn::LocalId, SBuiltIn::GroupId, SBuiltIn::LocalSize,
                                             SBuiltIn::Groups, SBuiltIn::LinearLocalId};
    return builtIn.eKind == SBuiltIn::WorkItem &&
           std::find(std::begin(s_Needing), std::end(s_Needing), builtIn.nWhich) != std::end(s_Needing);
}

uint64_t CallWorkItem(const SBuiltIn& builtIn, const SExtent& extent, size_t nItem, uint64_t nDimension)
{
    const size_t position[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                                nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
    const bool bThere = nDimension < extent.nDimensions;
    const size_t n = bThere ? static_cast<size_t>(nDimension) : 0;
    const auto local = [&](size_t nAxis) { return position[nAxis] % extent.nLocal[nAxis]; };
    switch (builtIn.nWhich)
    {
    case SBuiltIn::GlobalId:
        return bThere ? position[n] + extent.nOffset[n] : 0;
    case SBuiltIn::LocalId:
        return bThere ? local(n) : 0;
    case SBuiltIn::GroupId:
        return bThere ? position[n] / extent.nLocal[n] : 0;
    case SBuiltIn::GlobalSize:
        return bThere ? extent.nGlobal[n] : 1;
    case SBuiltIn::LocalSize:
        return bThere ? extent.nLocal[n] : 1;
    case SBuiltIn::Groups:
        return bThere ? extent.nGlobal[n] / extent.nLocal[n] : 1;
    case SBuiltIn::GlobalOffset:
        return bThere ? extent.nOffset[n] : 0;
    case SBuiltIn::Dimensions:
        return extent.nDimensions;
    case SBuiltIn::LinearGlobalId:
        return nItem;
    default:
        return (local(2) * extent.nLocal[1] + local(1)) * extent.nLocal[0] + local(0);
    }
}

void CallBuiltIn(const SBuiltIn& builtIn, const SSourceType& argument, const unsigned char* const pArguments[3],
                 const SSourceType& result, unsigned char* pResults, size_t nCount)
{
    const SSourceType& scalar = ScalarOf(argument);
    const size_t nNumbers = nCount * CountScalars(argument);
    if (builtIn.eKind == SBuiltIn::Geometric)
    {
        return scalar.nSize == 8 ? CallGeometric<double>(builtIn, argument, pArguments, result, pResults, nCount)
                                 : CallGeometric<float>(builtIn, argument, pArguments, result, pResults, nCount);
    }
    if (builtIn.eKind != SBuiltIn::Test)
    {
        return CallOnNumbers(builtIn, scalar, pArguments, pResults, nNumbers);
    }
    const SSourceType& truth = ScalarOf(result);
    const int64_t nTrue = IsVector(result) ? -1 : 1;
    for (size_t n = 0; n < nNumbers; ++n)
    {
        double fValue = 0;
        VisitScalar(scalar, [&](auto zero)
                    { fValue = ConvertNumber<double>(LoadAs<decltype(zero)>(pArguments[0] + n * scalar.nSize)); });
        const int64_t nResult = builtIn.pTest(fValue) ? nTrue : 0;
        std::memcpy(pResults + n * truth.nSize, &nResult, truth.nSize);
    }
}

} // namespace KestrelTool
