#include "fuzz/Targets.h"

#include "platform/compiler/Assembler.h"
#include "platform/compiler/OpenCLCompiler.h"

#include <dlfcn.h>

namespace KestrelFuzz
{

using namespace KestrelPlatform;

namespace
{

/// The compiler, opened by its path: it isn't beside the fuzzer.
const IOpenCLCompiler& Compiler()
{
    using Function = const IOpenCLCompiler* (*)();
    static void* const s_pLibrary = dlopen(KESTREL_PLATFORM_DIR "/libkestrel-opencl-c.so", RTLD_NOW | RTLD_LOCAL);
    Require(s_pLibrary != nullptr, "the compiler of OpenCL C is there", s_pLibrary == nullptr ? dlerror() : "");
    static const IOpenCLCompiler* const s_pCompiler =
        reinterpret_cast<Function>(dlsym(s_pLibrary, "kestrelOpenCLCFrontEnd"))();
    return *s_pCompiler;
}

void BuildFor(const std::string& strSource, bool bOlder, bool bDebug)
{
    SCompileJob job;
    job.strSource = strSource;
    job.options.bDebug = bDebug;
    job.bDebug = bDebug;
    job.target.strName = bOlder ? "Kiln" : "Quench";
    job.target.b64BitAddresses = !bOlder;
    job.target.bRawUavOnly = bOlder;
    SModule module;
    std::string strLog;
    if (!Compiler().Build(job, module, strLog))
    {
        // A crash inside clang is contained, and told as such.
        Require(!strLog.empty(), "a source that doesn't build says why");
        return;
    }
    std::vector<uint32_t> vTokens;
    SDiagnostic diag;
    Require(AssembleIL(module.strText.data(), module.strText.size(), vTokens, diag), "what the compiler makes is IL",
            diag.ToString() + "\n" + module.strText);
}

} // namespace

/// The first byte chooses the device and debug data, the rest is the source.
void FuzzOpenCL(const uint8_t* pData, size_t nSize)
{
    if (nSize == 0)
    {
        return;
    }
    const std::string strSource(reinterpret_cast<const char*>(pData) + 1, nSize - 1);
    if (strSource.find('\0') == std::string::npos)
    {
        BuildFor(strSource, (pData[0] & 1) != 0, (pData[0] & 2) != 0);
    }
}

} // namespace KestrelFuzz
