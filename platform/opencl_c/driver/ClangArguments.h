#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_CLANGARGUMENTS_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_CLANGARGUMENTS_H

#include "platform/opencl_c/CompileJob.h"

#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// The name that a source has, if none of its lines says otherwise.
extern const char* const s_pszSourceName;

/// Where the headers of a job are, in a file system of their own.
extern const char* const s_pszHeaderFolder;

/// What clang's front end is called with for a job: the language, the device as it reports itself, the client's
/// options.
std::vector<std::string> ClangArguments(const SCompileJob& job);

} // namespace KestrelOpenCL

#endif
