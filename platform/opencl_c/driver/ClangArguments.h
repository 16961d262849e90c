#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_CLANGARGUMENTS_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_CLANGARGUMENTS_H

#include "platform/opencl_c/CompileJob.h"

#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// The name of a source, unless one of its lines says otherwise.
extern const char* const s_pszSourceName;

/// The folder of a job's headers, in an in-memory file system.
extern const char* const s_pszHeaderFolder;

/// The arguments of clang's front end for a job: the language, the device's properties, and the client's options.
std::vector<std::string> ClangArguments(const SCompileJob& job);

} // namespace KestrelOpenCL

#endif
