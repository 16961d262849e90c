#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_ELEMENTWISE_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_ELEMENTWISE_H

#include "tests/support/OpenCLProgram.h"

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace KestrelTest
{

using TAllTypes =
    testing::Types<int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, float, double>;

/// The name of a type in OpenCL C.
template <class T>
const char* TypeName()
{
    if constexpr (std::is_same_v<T, float>)
    {
        return "float";
    }
    else if constexpr (std::is_same_v<T, double>)
    {
        return "double";
    }
    else
    {
        constexpr const char* s_Names[2][4] = {{"uchar", "ushort", "uint", "ulong"}, {"char", "short", "int", "long"}};
        return s_Names[std::is_signed_v<T>][sizeof(T) == 8 ? 3 : sizeof(T) / 2];
    }
}

/// Parts of a source, joined.
inline std::string Joined(std::initializer_list<std::string_view> pieces)
{
    std::string strText;
    for (const std::string_view piece : pieces)
    {
        strText += piece;
    }
    return strText;
}

/// A device for testing built-in functions, the build options for their kernels there, and the vector sizes to test.
struct STestDevice
{
    const char* pszName;
    const char* pszOptions;
    std::vector<unsigned> vSizes;
};

/// Together they have both address widths, and kernels with and without debug data.
#ifdef __SANITIZE_ADDRESS__
inline const STestDevice g_TestDevices[] = {{"Quench", "", {1, 16}}, {"Kiln", "-g", {3}}};
#else
inline const STestDevice g_TestDevices[] = {{"Quench", "", {1, 2, 3, 4, 8, 16}}, {"Kiln", "-g", {1, 3, 16}}};
#endif

/// An array as kernels have it.
struct SArray
{
    const char* pszType;
    size_t nElementSize;
    std::vector<char> vBytes;

    size_t Elements() const { return vBytes.size() / nElementSize; }
};

template <class T>
SArray ArrayOf(const std::vector<T>& v)
{
    const char* const pBytes = reinterpret_cast<const char*>(v.data());
    return {TypeName<T>(), sizeof(T), std::vector<char>(pBytes, pBytes + v.size() * sizeof(T))};
}

/// Evaluates expressions for each element of arrays on a device, as scalars and as vectors of its sizes, and
/// compares the results with expected ones: the same bits, or any NaN for NaN. Several expressions become one
/// program.
class CElementwise
{
public:
    explicit CElementwise(const STestDevice& device) : m_TestDevice(device), m_Device(device.pszName) {}

    /// \param strExpression uses a, b and c; $ stands for the vector size in names of types and functions
    /// \param strOfScalars the expression for scalars; empty for the same
    template <class R, class... A>
    void Expect(const std::string& strExpression, const std::string& strOfScalars, const std::vector<R>& vExpected,
                const std::vector<A>&... arguments)
    {
        Add(strExpression, strOfScalars, ArrayOf(vExpected), {ArrayOf(arguments)...});
    }

    /// Builds and runs all programs. \param strBefore text before the kernels
    void Run(const std::string& strBefore = "");

private:
    struct SCase
    {
        std::string strExpression;
        std::string strSource; ///< a kernel a size
        SArray expected;
        std::vector<SArray> vArguments;
    };

    void Add(const std::string& strExpression, const std::string& strOfScalars, SArray expected,
             std::vector<SArray> vArguments);
    void RunOne(COpenCLProgram& program, size_t nCase);

    const STestDevice& m_TestDevice;
    COpenCLDevice m_Device;
    std::vector<SCase> m_vCases;
};

/// Applies a function to the elements of arrays at each index.
template <class R, class F, class... A>
std::vector<R> Mapped(F function, const std::vector<A>&... arguments)
{
    std::vector<R> v;
    const size_t nCount = std::get<0>(std::tie(arguments...)).size();
    for (size_t i = 0; i < nCount; ++i)
    {
        v.push_back(static_cast<R>(function(arguments[i]...)));
    }
    return v;
}

/// Integers where behaviour changes: the limits of the types, powers of two and their neighbours.
template <class T>
std::vector<T> SpecialIntegers()
{
    std::vector<T> v = {
        0, 1, 2, 3, 5, 7, 10, 100, static_cast<T>(0x5555555555555555), static_cast<T>(0x123456789ABCDEF0)};
    for (unsigned n = 3; n < sizeof(T) * 8; n += sizeof(T) == 1 ? 1 : 4)
    {
        v.push_back(static_cast<T>(uint64_t(1) << n));
        v.push_back(static_cast<T>((uint64_t(1) << n) - 1));
    }
    const size_t nCount = v.size();
    for (size_t i = 0; i < nCount; ++i)
    {
        v.push_back(static_cast<T>(~v[i]));
    }
    return v;
}

template <class T>
std::vector<T> EveryInteger()
{
    std::vector<T> v;
    for (int n = 0; n < 256; ++n)
    {
        v.push_back(static_cast<T>(n));
    }
    return v;
}

/// Every value for 8 bits, special ones for the rest.
template <class T>
std::vector<T> TellingIntegers()
{
    return sizeof(T) == 1 ? EveryInteger<T>() : SpecialIntegers<T>();
}

/// All pairs of the elements of two arrays.
template <class A, class B>
std::pair<std::vector<A>, std::vector<B>> Pairs(const std::vector<A>& vA, const std::vector<B>& vB)
{
    std::pair<std::vector<A>, std::vector<B>> pairs;
    for (const A a : vA)
    {
        for (const B b : vB)
        {
            pairs.first.push_back(a);
            pairs.second.push_back(b);
        }
    }
    return pairs;
}

} // namespace KestrelTest

#endif
