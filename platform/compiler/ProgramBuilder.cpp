#include "platform/compiler/ProgramBuilder.h"

#include "platform/compiler/DeviceCode.h"
#include "platform/compiler/ElfReader.h"
#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/InstructionShape.h"
#include "platform/compiler/KernelLinker.h"
#include "platform/compiler/ObjectImage.h"
#include "platform/compiler/OpenCLCompiler.h"
#include "platform/compiler/ProgramImage.h"

#include <algorithm>
#include <functional>
#include <set>

namespace KestrelPlatform
{
namespace
{

const std::string_view s_SymbolPrefix = "__OpenCL_";
const std::string_view s_MetadataSuffix = "_metadata";

SBuildResult Refused(const std::string& strLog)
{
    SBuildResult result;
    result.strLog = strLog + "\n";
    return result;
}

/// Moves a fault in a module's text to where the text stands in the source.
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

bool CheckKernels(const std::vector<SModuleKernel>& vKernels, std::string& strFault)
{
    std::set<std::string_view> names;
    std::set<uint32_t> ids;
    for (const SModuleKernel& kernel : vKernels)
    {
        if (!names.insert(kernel.metadata.strKernel).second)
        {
            strFault = "two kernels are named " + kernel.metadata.strKernel;
            return false;
        }
        if (!ids.insert(kernel.metadata.nUniqueId).second)
        {
            strFault = "kernel " + kernel.metadata.strKernel + " has the unique id of another kernel";
            return false;
        }
    }
    return true;
}

/// Keeps the wanted kernel only. \return false if there is none of that name
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

/// Links each kernel of the module, and takes the module for the image.
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

/// Reads the metadata of every kernel that the image names, in the order of its symbol table.
bool ReadKernels(const CElfReader& elf, std::vector<SModuleKernel>& vKernels, std::string& strFault)
{
    for (const CElfReader::SSymbol& symbol : elf.Symbols())
    {
        const std::string_view name = symbol.name;
        if (name.size() <= s_SymbolPrefix.size() + s_MetadataSuffix.size() ||
            name.substr(0, s_SymbolPrefix.size()) != s_SymbolPrefix ||
            name.substr(name.size() - s_MetadataSuffix.size()) != s_MetadataSuffix)
        {
            continue;
        }
        const std::string_view kernelName =
            name.substr(s_SymbolPrefix.size(), name.size() - s_SymbolPrefix.size() - s_MetadataSuffix.size());
        SModuleKernel kernel;
        SDiagnostic diag;
        kernel.strMetadata = symbol.data.substr(0, symbol.data.find('\0'));
        if (!ReadKernelMetadata(kernel.strMetadata, kernel.metadata, diag))
        {
            strFault = "kernel " + std::string(kernelName) + ": " + diag.ToString();
            return false;
        }
        if (kernel.metadata.strKernel != kernelName)
        {
            strFault = "kernel " + std::string(kernelName) + " has the metadata of " + kernel.metadata.strKernel;
            return false;
        }
        vKernels.push_back(std::move(kernel));
    }
    strFault = "the binary names no kernel";
    return !vKernels.empty();
}

/// Links the code of one kernel as it stands in `.text`, with what its metadata says of it.
bool ReadCompiledKernel(const CElfReader& elf, const SKernelMetadata& metadata, const SDeviceTarget& target,
                        SCompiledKernel& kernel, SDiagnostic& diag)
{
    std::string_view block;
    SDeviceCode code;
    const std::string strSymbol = std::string(s_SymbolPrefix) + metadata.strKernel + "_kernel";
    if (!elf.FindSymbol(strSymbol, block) || !ReadDeviceCode(block, code) || code.strKernel != metadata.strKernel)
    {
        diag.strMessage = "kernel " + metadata.strKernel + ": its device code is missing or damaged";
        return false;
    }
    CKernelLinker linker;
    if (!linker.Take(std::move(code.vTokens), std::move(code.vLines)))
    {
        diag.strMessage = "kernel " + metadata.strKernel + ": its device code doesn't decode";
        return false;
    }
    return linker.Link(metadata, target, kernel, diag);
}

SBuildResult BuildFromCode(const CElfReader& elf, const std::vector<SModuleKernel>& vKernels,
                           const SDeviceTarget& target)
{
    SBuildResult result;
    std::string_view text;
    if (!elf.FindSection(".text", text))
    {
        return Refused("error: the binary has no .text section; its IL text can be compiled with -use-debugil");
    }
    for (const SModuleKernel& kernel : vKernels)
    {
        SCompiledKernel compiled;
        SDiagnostic diag;
        if (!ReadCompiledKernel(elf, kernel.metadata, target, compiled, diag))
        {
            return Refused("error: " + diag.ToString());
        }
        result.vKernels.push_back(std::move(compiled));
    }
    result.bOk = true;
    return result;
}

/// Leaves out the kernels that a text without the placeholder doesn't call, unless it calls none.
void KeepCalledKernels(const CKernelLinker& linker, std::vector<SModuleKernel>& vKernels)
{
    const auto IsCalled = [&linker](const SModuleKernel& kernel)
    { return linker.CallsFromMain(kernel.metadata.nUniqueId); };
    if (std::any_of(vKernels.begin(), vKernels.end(), IsCalled))
    {
        vKernels.erase(std::remove_if(vKernels.begin(), vKernels.end(), std::not_fn(IsCalled)), vKernels.end());
    }
}

SBuildResult BuildFromDebugText(const CElfReader& elf, SModule& module, const SDeviceTarget& target)
{
    std::string_view text;
    if (!elf.FindSection(".debugil", text))
    {
        return Refused("error: the binary has no .debugil section; build the program with -g");
    }
    module.strText = text.substr(0, text.find('\0'));
    CKernelLinker linker;
    SBuildResult result;
    SDiagnostic diag;
    bool bOk = linker.Assemble(module.strText, diag);
    if (bOk && !linker.HasPlaceholder())
    {
        KeepCalledKernels(linker, module.vKernels);
    }
    // Debuggers build their own copies of a kernel this way: those compute, and print nothing.
    for (SModuleKernel& kernel : module.vKernels)
    {
        kernel.metadata.vFormats.clear();
    }
    bOk = bOk && LinkModule(linker, module, true, target, result, diag);
    if (!bOk)
    {
        return Refused("error: .debugil: " + diag.ToString());
    }
    return result;
}

/// A source may come with its terminator. Texts of a binary end at their first zero byte, so that one in the middle
/// would give a binary of another program.
bool TrimSource(const std::string& strSource, std::string_view& source, std::string& strFault)
{
    source = std::string_view(strSource).substr(0, strSource.find_last_not_of('\0') + 1);
    const size_t nZero = source.find('\0');
    if (nZero == std::string_view::npos)
    {
        return true;
    }
    const auto nLine = std::count(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(nZero), '\n') + 1;
    strFault = "error: line " + std::to_string(nLine) + ": the source holds a zero byte";
    return false;
}

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

/// Takes an object that was made for the result.
void TakeObject(EImageType eType, std::string_view object, bool bDebug, SBuildResult& result)
{
    result.eType = eType;
    result.pImage = std::make_shared<CProgramImage>(WriteObjectImage(eType, object, bDebug));
    result.bOk = true;
}

/// Builds what a front end has made of a source.
///
/// \param strLog what the front end had to say
SBuildResult BuildModule(SModule& module, const SBuildOptions& options, const SDeviceTarget& target,
                         const std::string& strLog)
{
    std::string strFault;
    if (!CheckKernels(module.vKernels, strFault))
    {
        return Refused(strLog + "error: " + strFault);
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

} // namespace

const std::vector<char>& SBuildResult::GetImage() const
{
    static const std::vector<char> s_vNone;
    return pImage ? pImage->GetBytes() : s_vNone;
}

SBuildResult BuildFromSource(const std::string& strSource, const SBuildOptions& options, const SDeviceTarget& target,
                             const std::vector<SSourceHeader>& vHeaders)
{
    std::string_view source;
    std::string strFault;
    if (!TrimSource(strSource, source, strFault))
    {
        return Refused(strFault);
    }
    SModule module;
    if (!IsILModule(source))
    {
        SBuildResult result;
        const IOpenCLCompiler* const pCompiler = OpenOpenCLCompiler(strFault);
        if (pCompiler == nullptr)
        {
            return Refused("error: " + strFault);
        }
        if (!pCompiler->Build(MakeJob(source, options, target, vHeaders), module, result.strLog))
        {
            return result;
        }
        return BuildModule(module, options, target, result.strLog);
    }
    SDiagnostic diag;
    if (!CompileILModule(source, module, diag))
    {
        return Refused("error: " + diag.ToString());
    }
    return BuildModule(module, options, target, "");
}

SBuildResult CompileSource(const std::string& strSource, const SBuildOptions& options, const SDeviceTarget& target,
                           const std::vector<SSourceHeader>& vHeaders)
{
    std::string_view source;
    std::string strFault;
    if (!TrimSource(strSource, source, strFault))
    {
        return Refused(strFault);
    }
    if (IsILModule(source))
    {
        SBuildResult result = BuildFromSource(strSource, options, target);
        result.eType = EImageType::Object;
        return result;
    }
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

SBuildResult BuildFromBinary(const char* pImage, size_t nSize, const SBuildOptions& options,
                             const SDeviceTarget& target)
{
    std::string strFault;
    if (SObjectImage object; ReadObjectImage(pImage, nSize, object, strFault))
    {
        const std::vector<char> vImage(pImage, pImage + nSize);
        return LinkImages({&vImage}, options, target);
    }
    CElfReader elf;
    SModule module;
    if (!elf.Read(pImage, nSize, strFault) || !ReadKernels(elf, module.vKernels, strFault) ||
        !CheckKernels(module.vKernels, strFault))
    {
        return Refused("error: " + strFault);
    }
    if (!SelectKernel(options.strJustKernel, module.vKernels))
    {
        return Refused("error: the binary has no kernel named " + options.strJustKernel);
    }
    if (options.bUseDebugIL)
    {
        return BuildFromDebugText(elf, module, target);
    }
    SBuildResult result = BuildFromCode(elf, module.vKernels, target);
    if (result.bOk)
    {
        result.pImage = std::make_shared<CProgramImage>(std::vector<char>(pImage, pImage + nSize));
    }
    return result;
}

} // namespace KestrelPlatform
