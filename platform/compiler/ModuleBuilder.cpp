#include "platform/compiler/ModuleBuilder.h"

#include "platform/compiler/KernelLinker.h"
#include "platform/compiler/ProgramImage.h"

#include <set>

namespace KestrelPlatform
{
namespace
{

/// Changes a fault's place from the module's text to the source.
void MapToSource(const SModule& module, SDiagnostic& diag)
{
    if (diag.nLine == 0 || module.vPlaces.empty())
    {
        return;
    }
    if (diag.nLine > module.vPlaces.size())
    {
        diag.nLine = module.vPlaces.back().nLine + 1;
        return;
    }
    const SSourcePlace& place = module.vPlaces[diag.nLine - 1];
    diag.nLine = place.nLine;
    diag.nColumn += place.nColumn;
}

} // namespace

bool CheckKernels(const std::vector<SModuleKernel>& vKernels, std::string& strError)
{
    std::set<std::string_view> names;
    std::set<uint32_t> ids;
    for (const SModuleKernel& kernel : vKernels)
    {
        if (!names.insert(kernel.metadata.strKernel).second)
        {
            strError = "two kernels are named " + kernel.metadata.strKernel;
            return false;
        }
        if (!ids.insert(kernel.metadata.nUniqueId).second)
        {
            strError = "kernel " + kernel.metadata.strKernel + " has the unique id of another kernel";
            return false;
        }
    }
    return true;
}

bool SelectKernel(const std::string& strJustKernel, std::vector<SModuleKernel>& vKernels)
{
    if (strJustKernel.empty())
    {
        return true;
    }
    for (SModuleKernel& kernel : vKernels)
    {
        if (kernel.metadata.strKernel == strJustKernel)
        {
            SModuleKernel wanted = std::move(kernel);
            vKernels.clear();
            vKernels.push_back(std::move(wanted));
            return true;
        }
    }
    return false;
}

bool LinkModule(const CKernelLinker& linker, SModule& module, bool bDebugText, const SDeviceTarget& target,
                SBuildResult& result, SDiagnostic& diag)
{
    if (!LinkKernels(linker, module, target, result.vKernels, diag))
    {
        return false;
    }
    result.pImage = std::make_shared<CProgramImage>(std::move(module), target, bDebugText);
    result.bOk = true;
    return true;
}

SBuildResult Refused(const std::string& strLog)
{
    SBuildResult result;
    result.strLog = strLog + "\n";
    return result;
}

SBuildResult BuildModule(SModule& module, const SBuildOptions& options, const SDeviceTarget& target,
                         const std::string& strLog)
{
    std::string strError;
    if (!CheckKernels(module.vKernels, strError))
    {
        return Refused(strLog + "error: " + strError);
    }
    if (!SelectKernel(options.strJustKernel, module.vKernels))
    {
        return Refused(strLog + "error: the source has no kernel named " + options.strJustKernel);
    }
    CKernelLinker linker;
    SBuildResult result;
    result.strLog = strLog;
    for (const SSourcePlace& place : module.vPlaces)
    {
        result.vSourceLines.push_back(place.nLine);
    }
    SDiagnostic diag;
    if (!linker.Assemble(module.strText, diag) || !LinkModule(linker, module, options.bDebug, target, result, diag))
    {
        MapToSource(module, diag);
        return Refused(strLog + "error: " + diag.ToString());
    }
    return result;
}

} // namespace KestrelPlatform
