#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_MATHREFERENCE_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_LIBRARY_MATHREFERENCE_H

#include <string>
#include <vector>

#include <mpfr.h>

namespace KestrelTest
{

/// A mathematical built-in function and its reference in MPFR.
struct SMathFunction
{
    using FReference = void (*)(mpfr_ptr result, mpfr_srcptr x, mpfr_srcptr y);

    const char* pszName;
    /// The form of a call: with x, with x and y, or with x and the integer n, which is y for the reference.
    enum EShape
    {
        Of1,
        Of2,
        OfInteger
    } eShape;
    FReference pReference;
    double dAllowedFloat; ///< ulp allowed by OpenCL 1.2, section 7.4, in single precision; negative if it sets no limit
    double dAllowedDouble; ///< the same in double precision; NAN if the function has no such form
    double dLeast;         ///< range of the most interesting arguments
    double dLargest;
    bool bAnyZero = false; ///< whether either sign of a zero is right
};

const std::vector<SMathFunction>& MathFunctions();

/// The error of a result in units in the last place of the true value, where denormal numbers count with
/// full precision. 0 for the same infinity, NaN or zero with the same sign; infinity for a different kind.
/// \param bDouble use the units of double precision
double ErrorInUlp(const SMathFunction& function, double dResult, mpfr_srcptr reference, bool bDouble);

/// Whether a result is within the allowed error; 0 ulp requires the correctly rounded value.
bool IsAllowed(const SMathFunction& function, double dResult, mpfr_srcptr reference, bool bDouble);

/// The reference's value for arguments, with 300 bits. \param result initialised, of that precision
void Reference(const SMathFunction& function, double dX, double dY, mpfr_ptr result);

/// Makes arguments: all pairs of special values, then random ones over all magnitudes and over the interesting
/// range. For float they are floats. \param vX,vY get the same length \param nRandom random arguments of each kind
void MakeArguments(const SMathFunction& function, bool bDouble, size_t nRandom, std::vector<double>& vX,
                   std::vector<double>& vY);

} // namespace KestrelTest

#endif
