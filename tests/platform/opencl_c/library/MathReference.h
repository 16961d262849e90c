#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_MATHREFERENCE_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_MATHREFERENCE_H

#include <string>
#include <vector>

#include <mpfr.h>

namespace KestrelTest
{

/// A mathematical built-in function and what MPFR computes for it.
struct SMathFunction
{
    using FReference = void (*)(mpfr_ptr result, mpfr_srcptr x, mpfr_srcptr y);

    const char* pszName;
    /// What a call is written like: of x, of x and y, or of x and the integer n, which the reference has as y.
    enum EShape
    {
        Of1,
        Of2,
        OfInteger
    } eShape;
    FReference pReference;
    double
        dAllowedFloat; ///< ulp that OpenCL 1.2 allows in single precision, section 7.4; below 0 where it sets no bound
    double dAllowedDouble; ///< the same in double precision; NAN where the function has no such form
    double dLeast;         ///< arguments of most interest
    double dLargest;
    bool bAnyZero = false; ///< whether the sign of a zero is free
};

const std::vector<SMathFunction>& MathFunctions();

/// The error of a result in units of the last place of the true value, with denormal numbers of their
/// full precision; 0 for the same infinity, NaN or zero with the same sign, infinity for what isn't alike.
/// \param bDouble whether places are those of double precision
double ErrorInUlp(const SMathFunction& function, double dResult, mpfr_srcptr reference, bool bDouble);

/// Whether a result is within what is allowed; 0 ulp asks for the number next to the true value.
bool IsAllowed(const SMathFunction& function, double dResult, mpfr_srcptr reference, bool bDouble);

/// The reference's value for arguments, with 300 bits. \param result initialised, of that precision
void Reference(const SMathFunction& function, double dX, double dY, mpfr_ptr result);

/// Arguments: all pairs of special values, then random ones over all magnitudes and over the range of
/// interest. Those of a float are floats. \param vX,vY filled alike \param nRandom how many random ones of each kind
void MakeArguments(const SMathFunction& function, bool bDouble, size_t nRandom, std::vector<double>& vX,
                   std::vector<double>& vY);

} // namespace KestrelTest

#endif
