#include "fuzz/OpenCLRoad.h"

#include "fuzz/Targets.h"

#include "platform/compiler/Assembler.h"
#include "platform/simt/Structure.h"
#include "tests/support/Folders.h"

#include <dlfcn.h>

namespace KestrelFuzz
{

using namespace KestrelPlatform;

const IOpenCLCompiler& OpenCLCompiler()
{
    static const SCompilerInterface s_interface;
    static void* const s_pLibrary =
        dlopen(KestrelTest::PlatformFile("libkestrel-opencl-c.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    Require(s_pLibrary != nullptr, "the compiler of OpenCL C is there", s_pLibrary == nullptr ? dlerror() : "");
    static const IOpenCLCompiler* const s_pCompiler =
        reinterpret_cast<GetOpenCLCompiler>(dlsym(s_pLibrary, s_pszGetOpenCLCompiler))(&s_interface);
    return *s_pCompiler;
}

SCompileJob MakeOpenCLJob(bool bOlder, bool bDebug)
{
    SCompileJob job;
    job.options.bDebug = bDebug;
    job.bDebug = bDebug;
    job.target.strName = bOlder ? "Kiln" : "Quench";
    job.target.b64BitAddresses = !bOlder;
    job.target.bRawUavOnly = bOlder;
    return job;
}

void CheckCompiled(bool bOk, const SModule& module, const std::string& strLog)
{
    if (!bOk)
    {
        // A crash within the compiler is contained and reported as an error.
        Require(!strLog.empty(), "a source that doesn't build says why");
        return;
    }
    std::vector<uint32_t> vTokens;
    SDiagnostic diag;
    Require(AssembleIL(module.strText.data(), module.strText.size(), vTokens, diag), "what the compiler makes is IL",
            diag.ToString() + "\n" + module.strText);
    SDecodedStream stream;
    SStructure structure;
    SDecodeError error;
    Require(DecodeStream(vTokens.data(), vTokens.size(), stream, error) && BuildStructure(stream, structure, error),
            "the devices take what the compiler makes", error.strMessage + "\n" + module.strText);
}

} // namespace KestrelFuzz
