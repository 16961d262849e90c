#ifndef KESTREL_BINARY_KERNELARGKINDS_H
#define KESTREL_BINARY_KERNELARGKINDS_H

#include "binary/KernelArgTracking.h"

#include <CL/cl.h>

#include <string>
#include <vector>

/// What the runtime and a kernel's metadata tell of its arguments, for the record of the kernel. All calls
/// go through the core's dispatch table; an entry that the runtime lacks counts as a failed query.
namespace OVK_ShaderDebugger
{

/// \return false if the query fails
bool GetNumKernelArgs(cl_kernel kernel, cl_uint& nNumArgs);
bool GetKernelName(cl_kernel kernel, std::string& strKernelName);

/// Whether the program has a GPU among its devices. A failed query gives false, or skips the one device.
bool ProgramHasGPUDevice(cl_program program);

/// Appends the binaries of the program's GPU devices, in device order. \return false if a query fails
bool GetProgramBinaries(cl_program program, std::vector<std::vector<char>>* vvBinaries);

/// Fills in kind, name and resource of each argument from the metadata in the first of the binaries.
/// \return false if the binary or its metadata can't be read, or is another kernel's
bool GetKernelArgTypes(const std::string& strKernelName, KernelInfo::ArgInfoArrayType& vArgArray,
                       const std::vector<std::vector<char>>& vvBinaries);

} // namespace OVK_ShaderDebugger

#endif
