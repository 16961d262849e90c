#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_GENERATED_KERNELMAKER_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_GENERATED_KERNELMAKER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace KestrelTest
{

/// The arguments and launch sizes of every generated kernel. The signature:
///   __kernel void kN(__global const int* in, __global uint* out, __global uint* sums, int n, float f, uint2 v)
/// `in` has g_nInputs elements; each work-item owns g_nOutputs words of `out`; `sums` has g_nSums words, to which all
/// work-items add by atomics.
const size_t g_nGroupSize = 8;
const size_t g_nItems = 32;
const size_t g_nInputs = 64;
const size_t g_nOutputs = 24;
const size_t g_nSums = 8;

/// A kernel in the common subset of OpenCL C and clang's C with vector extensions, without undefined or unspecified
/// behaviour: every compiler must give the same words.
///
/// \param strName the kernel's name; its helpers, types and constants have names that start with it
/// \return the text, the same for the same seed
std::string MakeKernel(uint64_t nSeed, const std::string& strName);

/// Variables by name, with a letter for each byte: 'i' of an integer, 'f' of a float, 'd' of a double, '-' between
/// members.
using CLayouts = std::map<std::string, std::string>;

/// The same kernel with probes: before statements, on the same line, it has P(name) for each variable with a value
/// there. Names used in several functions have the same type.
std::string MakeProbedKernel(uint64_t nSeed, const std::string& strName, CLayouts& layouts);

/// The faults that can be planted in a kernel.
enum EPlanted
{
    PLANTED_NOTHING,
    PLANTED_INDEX,  ///< reads past the end of `in`
    PLANTED_SHARED, ///< writes a word of `sums` that another work-item writes too
    PLANTED_BARRIER,
    PLANTED_ATOMIC,
    PLANTED_START ///< a variable without its initial value
};
const size_t g_nPlantedSums = g_nSums + 4 + g_nItems; ///< words of `sums` in that case

/// A similar kernel with one place that has two forms, PLANTED(wrong, right), and the known effect of the wrong one.
/// P(gid) comes before the code that work-items with the fault execute.
struct SPlantedKernel
{
    std::string strText;
    EPlanted ePlanted = PLANTED_NOTHING;
    unsigned int nLine = 0;  ///< where it shows, counted from the text's first line, which is 0
    unsigned int nOther = 0; ///< for a barrier: the other place; else the same
    unsigned int nNext = 0;  ///< for a barrier: distance in the group from a work-item to the one whose word it reads
};
SPlantedKernel MakePlantedKernel(uint64_t nSeed, const std::string& strName, EPlanted ePlanted);

/// The bytes with undefined parts made equal: bytes between members, and the kind of a NaN.
std::string SettleBytes(std::string strBytes, const std::string& strLayout);

} // namespace KestrelTest

#endif
