#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_FLOATS_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_FLOATS_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace KestrelTest
{

using TFloatTypes = testing::Types<float, double>;

/// The same bits as another type.
template <class To, class From>
To BitCast(From value)
{
    static_assert(sizeof(To) == sizeof(From));
    To result;
    std::memcpy(&result, &value, sizeof result);
    return result;
}

/// The integers of a floating-point type's size.
template <class F>
using TSigned = std::conditional_t<sizeof(F) == 4, int32_t, int64_t>;
template <class F>
using TUnsigned = std::make_unsigned_t<TSigned<F>>;

/// Numbers of each kind in a floating-point type, with both signs, and NaN.
template <class F>
std::vector<F> SpecialFloats()
{
    using TLimits = std::numeric_limits<F>;
    std::vector<F> v = {0,
                        TLimits::denorm_min(),
                        TLimits::min() / 2,
                        std::nextafter(TLimits::min(), F(0)),
                        TLimits::min(),
                        F(0.1),
                        F(0.5),
                        std::nextafter(F(0.5), F(0)),
                        std::nextafter(F(1), F(0)),
                        1,
                        std::nextafter(F(1), F(2)),
                        F(1.5),
                        2,
                        F(2.5),
                        3,
                        100,
                        F(1e10),
                        TLimits::max() / 2,
                        TLimits::max(),
                        TLimits::infinity()};
    const size_t nCount = v.size();
    for (size_t i = 0; i < nCount; ++i)
    {
        v.push_back(-v[i]);
    }
    v.push_back(TLimits::quiet_NaN());
    return v;
}

} // namespace KestrelTest

#endif
