#include "platform/compiler/ProgramBuilder.h"

#include "platform/compiler/DeviceCode.h"
#include "platform/compiler/ElfReader.h"
#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/KernelLinker.h"
#include "platform/compiler/ModuleBuilder.h"
#include "platform/compiler/ObjectImage.h"
#include "platform/compiler/OpenCLBuilder.h"
#include "platform/compiler/ProgramImage.h"
#include "platform/il/InstructionShape.h"

#include <algorithm>
#include <functional>
#include <set>

namespace KestrelPlatform
{
namespace
{

const std::string_view s_SymbolPrefix = "__OpenCL_";
const std::string_view s_MetadataSuffix = "_metadata";

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

/// Links the code of one kernel from `.text`, with its metadata.
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

/// A text without the placeholder can build only the kernels that it calls, so the others are left out. If it calls
/// none, all stay.
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
    // A debugger builds its own copies of a kernel this way. They compute, but print nothing.
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

/// A source may end with zero bytes. A zero byte in the middle is a fault: a binary's texts end at the first one, so
/// the binary would hold another program.
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
    if (!IsILModule(source))
    {
        return BuildOpenCL(source, options, target, vHeaders);
    }
    SModule module;
    SDiagnostic diag;
    return CompileILModule(source, module, diag) ? BuildModule(module, options, target, "")
                                                 : Refused("error: " + diag.ToString());
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
    if (!IsILModule(source))
    {
        return CompileOpenCL(source, options, target, vHeaders);
    }
    SBuildResult result = BuildFromSource(strSource, options, target);
    result.eType = EImageType::Object;
    return result;
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
