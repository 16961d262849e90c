#ifndef KESTREL_FUZZ_OPENCLROAD_H
#define KESTREL_FUZZ_OPENCLROAD_H

#include "platform/compiler/OpenCLCompiler.h"

#include <string>

namespace KestrelFuzz
{

/// The compiler of OpenCL C, opened by its path, since it isn't in the fuzzer's folder.
const KestrelPlatform::IOpenCLCompiler& OpenCLCompiler();

/// A job for one of the two generations of devices.
KestrelPlatform::SCompileJob MakeOpenCLJob(bool bOlder, bool bDebug);

/// Checks a compilation: a failure must have a reason, and a success must give IL that the devices accept.
void CheckCompiled(bool bOk, const KestrelPlatform::SModule& module, const std::string& strLog);

} // namespace KestrelFuzz

#endif
