#ifndef KESTREL_PLATFORM_COMPILER_MODULEBUILDER_H
#define KESTREL_PLATFORM_COMPILER_MODULEBUILDER_H

#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/ProgramBuilder.h"

namespace KestrelPlatform
{

class CKernelLinker;

/// A build that failed. \param strLog a line without its end
SBuildResult Refused(const std::string& strLog);

/// Whether all kernels have different names and unique ids; if not, the reason.
bool CheckKernels(const std::vector<SModuleKernel>& vKernels, std::string& strError);

/// Keeps only the kernel of this name, or all if it is empty. \return false if there is none of that name
bool SelectKernel(const std::string& strJustKernel, std::vector<SModuleKernel>& vKernels);

/// Links each kernel of the module, and moves the module into the image.
bool LinkModule(const CKernelLinker& linker, SModule& module, bool bDebugText, const SDeviceTarget& target,
                SBuildResult& result, SDiagnostic& diag);

/// Builds what a front end has made of a source.
///
/// \param strLog the front end's messages
SBuildResult BuildModule(SModule& module, const SBuildOptions& options, const SDeviceTarget& target,
                         const std::string& strLog);

} // namespace KestrelPlatform

#endif
