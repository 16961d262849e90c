#include "platform/compiler/OpenCLBuilder.h"

#include "platform/compiler/ModuleBuilder.h"
#include "platform/compiler/ObjectImage.h"
#include "platform/compiler/OpenCLCompiler.h"
#include "platform/compiler/ProgramCache.h"
#include "platform/compiler/ProgramImage.h"

namespace KestrelPlatform
{
namespace
{

SCompileJob MakeJob(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                    const std::vector<SSourceHeader>& vHeaders)
{
    SCompileJob job;
    job.strSource = source;
    job.vHeaders = vHeaders;
    job.options = options;
    job.target = target;
    job.bDebug = options.bDebug;
    return job;
}

/// What tells a build from all others, but for files on disk, which builds in the cache never read.
std::string CacheKey(const char* pszCall, const SCompileJob& job)
{
    std::string strKey;
    const auto Add = [&strKey](std::string_view part)
    { (strKey += std::to_string(part.size()) + ":").append(part) += '\n'; };
    Add(pszCall);
    Add(OpenCLCompilerVersion());
    Add(job.target.strName);
    Add(std::to_string(job.target.b64BitAddresses) + std::to_string(job.target.bRawUavOnly) + " " +
        std::to_string(job.target.nMaxGroupSize) + " " + std::to_string(job.target.nLocalMemoryBytes));
    Add(job.options.strText);
    for (const SSourceHeader& header : job.vHeaders)
    {
        Add(header.strName);
        Add(header.strSource);
    }
    Add(job.strSource);
    return strKey;
}

/// Whether the text of a build depends on when it is built.
bool DependsOnTime(const SCompileJob& job)
{
    const auto NamesTime = [](const std::string& strText)
    { return strText.find("__DATE__") != std::string::npos || strText.find("__TIME") != std::string::npos; };
    bool bNames = NamesTime(job.strSource) || NamesTime(job.options.strText);
    for (const SSourceHeader& header : job.vHeaders)
    {
        bNames |= NamesTime(header.strSource);
    }
    return bNames;
}

/// Takes an object that was made for the result.
void TakeObject(EImageType eType, std::string_view object, bool bDebug, SBuildResult& result)
{
    result.eType = eType;
    result.pImage = std::make_shared<CProgramImage>(WriteObjectImage(eType, object, bDebug));
    result.bOk = true;
}

/// Builds with the compiler, and tells whether the result depends on files.
SBuildResult BuildWithCompiler(const SCompileJob& job, bool& bReadFiles)
{
    SBuildResult result;
    SModule module;
    std::string strFault;
    const IOpenCLCompiler* const pCompiler = OpenOpenCLCompiler(strFault);
    if (pCompiler == nullptr)
    {
        return Refused("error: " + strFault);
    }
    if (!pCompiler->Build(job, module, result.strLog))
    {
        return result;
    }
    bReadFiles = module.bReadFiles;
    return BuildModule(module, job.options, job.target, result.strLog);
}

} // namespace

SBuildResult BuildOpenCL(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                         const std::vector<SSourceHeader>& vHeaders)
{
    const SCompileJob job = MakeJob(source, options, target, vHeaders);
    const CProgramCache& cache = CProgramCache::Default();
    const std::string strKey = cache.IsOn() && !DependsOnTime(job) ? CacheKey("build", job) : "";
    SCachedProgram cached;
    if (!strKey.empty() && cache.Find(strKey, cached))
    {
        SBuildResult result = BuildFromBinary(cached.vImage.data(), cached.vImage.size(), SBuildOptions(), target);
        if (result.bOk)
        {
            result.strLog = cached.strLog;
            return result;
        }
    }
    bool bReadFiles = false;
    SBuildResult result = BuildWithCompiler(job, bReadFiles);
    if (result.bOk && !strKey.empty() && !bReadFiles)
    {
        cache.Store(strKey, {result.strLog, result.GetImage()});
    }
    return result;
}

SBuildResult CompileOpenCL(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                           const std::vector<SSourceHeader>& vHeaders)
{
    std::string strFault;
    const IOpenCLCompiler* const pCompiler = OpenOpenCLCompiler(strFault);
    if (pCompiler == nullptr)
    {
        return Refused("error: " + strFault);
    }
    SBuildResult result;
    std::string strObject;
    if (pCompiler->Compile(MakeJob(source, options, target, vHeaders), strObject, result.strLog))
    {
        TakeObject(EImageType::Object, strObject, options.bDebug, result);
    }
    return result;
}

SBuildResult LinkImages(const std::vector<const std::vector<char>*>& vImages, const SBuildOptions& options,
                        const SDeviceTarget& target)
{
    SBuildResult result;
    std::string strFault;
    const IOpenCLCompiler* const pCompiler = OpenOpenCLCompiler(strFault);
    if (pCompiler == nullptr)
    {
        return Refused("error: " + strFault);
    }
    std::vector<std::string_view> vObjects;
    SCompileJob job = MakeJob("", options, target, {});
    for (const std::vector<char>* const pImage : vImages)
    {
        SObjectImage object;
        if (!ReadObjectImage(pImage->data(), pImage->size(), object, strFault))
        {
            return Refused("error: " + strFault);
        }
        job.bDebug |= object.bDebug;
        vObjects.push_back(object.object);
    }
    if (options.bCreateLibrary)
    {
        std::string strObject;
        if (pCompiler->LinkLibrary(job, vObjects, strObject, result.strLog))
        {
            TakeObject(EImageType::Library, strObject, job.bDebug, result);
        }
        return result;
    }
    SModule module;
    if (!pCompiler->LinkProgram(job, vObjects, module, result.strLog))
    {
        return result;
    }
    job.options.bDebug = job.bDebug;
    return BuildModule(module, job.options, target, result.strLog);
}

EImageType GetImageType(const char* pImage, size_t nSize)
{
    SObjectImage object;
    std::string strFault;
    return ReadObjectImage(pImage, nSize, object, strFault) ? object.eType : EImageType::Executable;
}

} // namespace KestrelPlatform
