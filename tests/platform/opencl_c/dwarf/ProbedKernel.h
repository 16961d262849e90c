#ifndef KESTREL_TESTS_OPENCL_C_DWARF_PROBEDKERNEL_H
#define KESTREL_TESTS_OPENCL_C_DWARF_PROBEDKERNEL_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KestrelTests
{

/// The bytes of variables before a statement, by name.
using SnapShot = std::map<std::string, std::string>;

/// For a work-item and a source line, the variables at each visit of the line.
using CVisits = std::map<std::pair<uint64_t, int>, std::vector<SnapShot>>;

/// A kernel in the common subset of OpenCL C and C. Before statements it has P(name) for variables with a value there:
/// nothing for the device's compiler, and a note of the value for the host's.
struct SProbedKernel
{
    const char* pszName;
    const char* pszSource; ///< with `__kernel void run(__global int* data, ...)`
};

/// Compiles the source with the host's compiler, without optimisation, and runs it for one work-item after the other.
///
/// \param vData  the kernel's buffer, which is changed
/// \param nScale the other argument, an int
CVisits RunOnHost(const SProbedKernel& kernel, size_t nItems, std::vector<int32_t>& vData, int nScale);

/// Builds the same source with "-g" for a device, runs it with the platform's trace, and reads the variables noted on
/// the host from the places in the debug data.
///
/// \param expected the lines and names to look for
CVisits RunOnDevice(const SProbedKernel& kernel, const std::string& strDevice, size_t nItems,
                    std::vector<int32_t>& vData, int nScale, const CVisits& expected);

/// Bytes in hexadecimal, for messages about differences.
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
