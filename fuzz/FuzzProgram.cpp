#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"
#include "fuzz/TextRoad.h"

#include "binary/Elf.h"
#include "platform/compiler/ProgramBuilder.h"

namespace KestrelFuzz
{

using namespace KestrelPlatform;

namespace
{

SDeviceTarget Newer()
{
    SDeviceTarget target;
    target.strName = "Quench";
    return target;
}

SDeviceTarget Older()
{
    SDeviceTarget target;
    target.strName = "Kiln";
    target.b64BitAddresses = false;
    target.bRawUavOnly = true;
    return target;
}

SBuildOptions Options(bool bDebug, bool bUseDebugIL, const std::string& strJustKernel = std::string())
{
    SBuildOptions options;
    options.bDebug = bDebug;
    options.bUseDebugIL = bUseDebugIL;
    options.strJustKernel = strJustKernel;
    return options;
}

void CheckResult(const SBuildResult& result)
{
    Require(result.bOk || !result.strLog.empty(), "a build that fails has a log");
    if (!result.bOk)
    {
        return;
    }
    for (const SCompiledKernel& kernel : result.vKernels)
    {
        Require(CheckTextRoad(kernel.vTokens), "the tokens of a kernel that was built decode", kernel.strName);
        for (const SKernelArgument& argument : kernel.vArguments)
        {
            Require(argument.nSlotSize % 16 == 0 && argument.nSize <= argument.nSlotSize, "an argument fits its slot");
        }
    }
}

void BuildBinary(const char* pImage, size_t nSize)
{
    for (const SDeviceTarget& target : {Newer(), Older()})
    {
        CheckResult(BuildFromBinary(pImage, nSize, Options(false, false), target));
        const SBuildResult result = BuildFromBinary(pImage, nSize, Options(false, true), target);
        CheckResult(result);
        if (result.bOk && !result.vKernels.empty())
        {
            CheckResult(BuildFromBinary(pImage, nSize, Options(false, true, result.vKernels.back().strName), target));
        }
    }
}

/// A binary built from a source must give the source's kernels.
void Rebuild(const SBuildResult& source, bool bUseDebugIL, const SDeviceTarget& target)
{
    const SBuildResult result =
        BuildFromBinary(source.GetImage().data(), source.GetImage().size(), Options(false, bUseDebugIL), target);
    Require(result.bOk, "a binary that was built builds", result.strLog);
    Require(result.vKernels.size() == source.vKernels.size(), "a binary holds the kernels of its source");
    for (size_t i = 0; i < result.vKernels.size(); ++i)
    {
        Require(WithoutComments(result.vKernels[i].vTokens) == WithoutComments(source.vKernels[i].vTokens),
                "a kernel of a binary has the tokens of its source",
                (bUseDebugIL ? "by its text\n" : "by its code\n") + ToHex(source.vKernels[i].vTokens) + "\n" +
                    ToHex(result.vKernels[i].vTokens));
        Require(result.vKernels[i].strName == source.vKernels[i].strName &&
                    result.vKernels[i].vArguments.size() == source.vKernels[i].vArguments.size() &&
                    result.vKernels[i].nConstantBuffer1Elements == source.vKernels[i].nConstantBuffer1Elements,
                "a kernel of a binary is that of its source", result.vKernels[i].strName);
    }
}

void BuildSource(const std::string& strSource)
{
    for (const SDeviceTarget& target : {Newer(), Older()})
    {
        const SBuildResult result = BuildFromSource(strSource, Options(true, false), target);
        CheckResult(result);
        if (result.bOk)
        {
            Require(CElf(result.GetImage()).good(), "a binary that was built is read by the debugger");
            Rebuild(result, false, target);
            Rebuild(result, true, target);
        }
    }
}

} // namespace

void FuzzProgram(const uint8_t* pData, size_t nSize)
{
    const char* pBytes = reinterpret_cast<const char*>(pData);
    if (nSize >= 5 && CElf::IsElf(pBytes))
    {
        BuildBinary(pBytes, nSize);
    }
    else
    {
        BuildSource(std::string(pBytes, nSize));
    }
}

} // namespace KestrelFuzz
