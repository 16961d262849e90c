#ifndef KESTREL_PLATFORM_RUNTIME_DEVICEBUILD_H
#define KESTREL_PLATFORM_RUNTIME_DEVICEBUILD_H

#include "platform/runtime/ProgramObject.h"

#include <optional>
#include <string>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// Shared by the calls that build, compile and link. Each function gives a program's new state for a device; after a
/// failure the log gives the reason.

/// Builds one device's part of a program from source or image, and decodes its kernels.
SDeviceProgram BuildForDevice(const std::optional<std::string>& source, const SDeviceProgram& before,
                              const SBuildOptions& options);

/// Compiles one device's part of a program into an object.
SDeviceProgram CompileForDevice(const std::string& strSource, const SDeviceProgram& before,
                                const SBuildOptions& options, const std::vector<SSourceHeader>& vHeaders);

/// Decodes the kernels of a result.
SDeviceProgram TakeResult(SBuildResult result, const CRef<CDevice>& pDevice, const SBuildOptions& options);

using OptionReader = bool (*)(const std::string& strOptions, SBuildOptions& options, std::string& strUnknown);

/// Reads a call's options. \return nInvalid for a wrong one
cl_int ReadOptions(const char* pszOptions, OptionReader pRead, cl_int nInvalid, SBuildOptions& options);

using ProgramNotify = void(CL_CALLBACK*)(cl_program, void*);

/// Posts the client's callback, if it has one, to the callback thread.
void PostNotify(const CRef<CProgramObject>& pProgram, ProgramNotify pNotify, void* pUser);

} // namespace KestrelPlatform::Runtime

#endif
