#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_GENERATED_KERNELMAKER_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_GENERATED_KERNELMAKER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace KestrelTest
{

/// What every generated kernel takes and how it is launched. Its signature:
///   __kernel void kN(__global const int* in, __global uint* out, __global uint* sums, int n, float f, uint2 v)
/// `in` has g_nInputs elements; each work-item owns g_nOutputs words of `out`; `sums` has g_nSums words, which all
/// add to by atomics.
const size_t g_nGroupSize = 8;
const size_t g_nItems = 32;
const size_t g_nInputs = 64;
const size_t g_nOutputs = 24;
const size_t g_nSums = 8;

/// A kernel in the language that OpenCL C and the C of clang with its vector extension have in common, with no
/// behaviour that either leaves open: whoever compiles it must get the same words.
///
/// \param strName the kernel's name; its helpers, types and constants have names that start with it
/// \return the text, the same for the same seed
std::string MakeKernel(uint64_t nSeed, const std::string& strName);

/// Variables by name, with what their bytes are, in order: 'i' one byte of an integer, 'f' a float, 'd' a double,
/// '-' a byte between members.
using CLayouts = std::map<std::string, std::string>;

/// The same kernel; in front of statements stands P(name) for each variable that has a value there, on the same line.
/// Names that several functions have mean variables of one type.
std::string MakeProbedKernel(uint64_t nSeed, const std::string& strName, CLayouts& layouts);

/// Faults that a kernel may have.
enum EPlanted
{
    PLANTED_NOTHING,
    PLANTED_INDEX,  ///< reads past the end of `in`
    PLANTED_SHARED, ///< writes a word of `sums` that another work-item writes too
    PLANTED_BARRIER,
    PLANTED_ATOMIC,
    PLANTED_START ///< a variable without its initial value
};
const size_t g_nPlantedSums = g_nSums + 4 + g_nItems; ///< words of `sums` then

/// A kernel of the same kind with one place of which there are two forms, PLANTED(wrong, right), and what is known of
/// the wrong one. P(gid) stands in front of what the work-items that have the fault execute.
struct SPlantedKernel
{
    std::string strText;
    EPlanted ePlanted = PLANTED_NOTHING;
    unsigned int nLine = 0;  ///< where it shows, counted from the text's first, which is 0
    unsigned int nOther = 0; ///< of a barrier: the other place; else the same
    unsigned int nNext = 0;  ///< of a barrier: how many work-items further on in its group the one is that each reads
};
SPlantedKernel MakePlantedKernel(uint64_t nSeed, const std::string& strName, EPlanted ePlanted);

/// The bytes with what nobody promises made the same: bytes between members, and which NaN it is.
std::string SettleBytes(std::string strBytes, const std::string& strLayout);

} // namespace KestrelTest

#endif
