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

/// Everything that a build's result depends on, except for files on disk: builds that read files aren't cached.
///
/// \param vObjects the linked objects, for a link
std::string CacheKey(const char* pszCall, const SCompileJob& job, const std::vector<std::string_view>& vObjects = {})
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
    for (const std::string_view object : vObjects)
    {
        Add(object);
    }
    return strKey;
}

/// Whether a build's result depends on the time of the build.
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

/// One build that may be in the cache already.
class CCachedBuild
{
public:
    /// \param strKey empty for a build that isn't cached
    explicit CCachedBuild(std::string strKey)
        : m_Cache(CProgramCache::Default()), m_strKey(m_Cache.IsOn() ? std::move(strKey) : "")
    {
    }

    bool FindProgram(const SDeviceTarget& target, SBuildResult& result) const
    {
        SCachedProgram cached;
        if (m_strKey.empty() || !m_Cache.Find(m_strKey, cached))
        {
            return false;
        }
        result = BuildFromBinary(cached.vImage.data(), cached.vImage.size(), SBuildOptions(), target);
        result.strLog = result.bOk ? cached.strLog : "";
        return result.bOk;
    }

    bool FindObject(SBuildResult& result) const
    {
        SCachedProgram cached;
        SObjectImage object;
        std::string strFault;
        if (m_strKey.empty() || !m_Cache.Find(m_strKey, cached) ||
            !ReadObjectImage(cached.vImage.data(), cached.vImage.size(), object, strFault))
        {
            return false;
        }
        result.eType = object.eType;
        result.strLog = cached.strLog;
        result.pImage = std::make_shared<CProgramImage>(std::move(cached.vImage));
        result.bOk = true;
        return true;
    }

    void Store(const SBuildResult& result) const
    {
        if (result.bOk && !m_strKey.empty())
        {
            m_Cache.Store(m_strKey, {result.strLog, result.GetImage()});
        }
    }

private:
    const CProgramCache& m_Cache;
    const std::string m_strKey;
};

/// Wraps an object into the result.
void TakeObject(EImageType eType, std::string_view object, bool bDebug, SBuildResult& result)
{
    result.eType = eType;
    result.pImage = std::make_shared<CProgramImage>(WriteObjectImage(eType, object, bDebug));
    result.bOk = true;
}

/// What each of the calls does without the cache.
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

SBuildResult CompileWithCompiler(const SCompileJob& job, bool& bReadFiles)
{
    SBuildResult result;
    std::string strFault;
    const IOpenCLCompiler* const pCompiler = OpenOpenCLCompiler(strFault);
    if (pCompiler == nullptr)
    {
        return Refused("error: " + strFault);
    }
    std::string strObject;
    if (pCompiler->Compile(job, strObject, bReadFiles, result.strLog))
    {
        TakeObject(EImageType::Object, strObject, job.options.bDebug, result);
    }
    return result;
}

SBuildResult LinkWithCompiler(SCompileJob job, const std::vector<std::string_view>& vObjects)
{
    SBuildResult result;
    std::string strFault;
    const IOpenCLCompiler* const pCompiler = OpenOpenCLCompiler(strFault);
    if (pCompiler == nullptr)
    {
        return Refused("error: " + strFault);
    }
    if (job.options.bCreateLibrary)
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
    return BuildModule(module, job.options, job.target, result.strLog);
}

} // namespace

SBuildResult BuildOpenCL(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                         const std::vector<SSourceHeader>& vHeaders)
{
    const SCompileJob job = MakeJob(source, options, target, vHeaders);
    const CCachedBuild cached(DependsOnTime(job) ? "" : CacheKey("build", job));
    SBuildResult result;
    if (!cached.FindProgram(target, result))
    {
        bool bReadFiles = false;
        result = BuildWithCompiler(job, bReadFiles);
        bReadFiles ? void() : cached.Store(result);
    }
    return result;
}

SBuildResult CompileOpenCL(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                           const std::vector<SSourceHeader>& vHeaders)
{
    const SCompileJob job = MakeJob(source, options, target, vHeaders);
    const CCachedBuild cached(DependsOnTime(job) ? "" : CacheKey("compile", job));
    SBuildResult result;
    if (!cached.FindObject(result))
    {
        bool bReadFiles = false;
        result = CompileWithCompiler(job, bReadFiles);
        bReadFiles ? void() : cached.Store(result);
    }
    return result;
}

SBuildResult LinkImages(const std::vector<const std::vector<char>*>& vImages, const SBuildOptions& options,
                        const SDeviceTarget& target)
{
    std::vector<std::string_view> vObjects;
    SCompileJob job = MakeJob("", options, target, {});
    for (const std::vector<char>* const pImage : vImages)
    {
        SObjectImage object;
        std::string strFault;
        if (!ReadObjectImage(pImage->data(), pImage->size(), object, strFault))
        {
            return Refused("error: " + strFault);
        }
        job.bDebug |= object.bDebug;
        vObjects.push_back(object.object);
    }
    // The objects are part of the key, and a link depends on nothing else.
    const CCachedBuild cached(CacheKey(job.bDebug ? "link -g" : "link", job, vObjects));
    SBuildResult result;
    if (!(options.bCreateLibrary ? cached.FindObject(result) : cached.FindProgram(target, result)))
    {
        result = LinkWithCompiler(job, vObjects);
        cached.Store(result);
    }
    return result;
}

EImageType GetImageType(const char* pImage, size_t nSize)
{
    SObjectImage object;
    std::string strFault;
    return ReadObjectImage(pImage, nSize, object, strFault) ? object.eType : EImageType::Executable;
}

} // namespace KestrelPlatform
