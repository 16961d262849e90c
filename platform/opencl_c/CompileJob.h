#ifndef KESTREL_PLATFORM_OPENCL_C_COMPILEJOB_H
#define KESTREL_PLATFORM_OPENCL_C_COMPILEJOB_H

#include "platform/compiler/OpenCLCompiler.h"

namespace KestrelOpenCL
{

using SHeader = KestrelPlatform::SSourceHeader;
using SCompileJob = KestrelPlatform::SCompileJob;

} // namespace KestrelOpenCL

#endif
