#ifndef KESTREL_TESTS_OPENCL_C_DWARF_PROBEDKERNEL_H
#define KESTREL_TESTS_OPENCL_C_DWARF_PROBEDKERNEL_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KestrelTests
{

/// Variables, by name, with their bytes, as a statement finds them.
using SnapShot = std::map<std::string, std::string>;

/// For a work-item and a line of the source, what each visit of the line finds.
using CVisits = std::map<std::pair<uint64_t, int>, std::vector<SnapShot>>;

/// A kernel in the common part of OpenCL C and C. In front of statements stands P(name) for variables that have a value
/// there: nothing to the device's compiler, a note of the value to the host's.
struct SProbedKernel
{
    const char* pszName;
    const char* pszSource; ///< with `__kernel void run(__global int* data, ...)`
};

/// Compiles the source with the host's compiler, without optimisation, and runs it work-item by work-item.
///
/// \param vData  the kernel's buffer, in and out
/// \param nScale the other argument, an int
CVisits RunOnHost(const SProbedKernel& kernel, size_t nItems, std::vector<int32_t>& vData, int nScale);

/// Builds the same source with "-g" for a device, runs it with the platform's trace, and reads the variables that the
/// host noted where the debug data say that they are.
///
/// \param expected the lines and names to look for
CVisits RunOnDevice(const SProbedKernel& kernel, const std::string& strDevice, size_t nItems,
                    std::vector<int32_t>& vData, int nScale, const CVisits& expected);

/// Bytes as they are printed where they differ.
inline std::string Hex(const std::string& strBytes)
{
    std::string strText;
    for (const char c : strBytes)
    {
        strText += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
        strText += "0123456789abcdef"[c & 15];
    }
    return strText;
}

} // namespace KestrelTests

#endif
