#ifndef KESTREL_FUZZ_OPENCLROAD_H
#define KESTREL_FUZZ_OPENCLROAD_H

#include "platform/compiler/OpenCLCompiler.h"

#include <string>

namespace KestrelFuzz
{

/// The compiler of OpenCL C, opened by its path: it isn't beside the fuzzer.
const KestrelPlatform::IOpenCLCompiler& OpenCLCompiler();

/// A job for one of the two generations of devices.
KestrelPlatform::SCompileJob MakeOpenCLJob(bool bOlder, bool bDebug);

/// What holds of a compilation: one that fails says why, and what another one makes is IL that the devices take.
void CheckCompiled(bool bOk, const KestrelPlatform::SModule& module, const std::string& strLog);

} // namespace KestrelFuzz

#endif
