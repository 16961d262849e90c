#include "platform/compiler/ProgramImage.h"

#include "platform/compiler/DeviceCode.h"
#include "platform/compiler/ElfWriter.h"
#include "platform/compiler/KernelLinker.h"

#include <elf.h>

namespace KestrelPlatform
{
namespace
{

const uint64_t s_nCodeAlignment = 16;
const uint64_t s_nDataAlignment = 16;

/// The block named `__OpenCL_K_header`, in little-endian words.
struct SKernelHeader
{
    uint32_t nMark = 0x48564B4F; // "OKVH"
    uint32_t nVersion = 1;
    uint32_t nUniqueId = 0;
    uint32_t nFlags = 0; ///< bit 0: 64-bit addresses
    uint32_t nConstantBuffer1Elements = 0;
    uint32_t nStaticLocalBytes = 0;
    uint32_t nPrivateBytes = 0;
    uint32_t nMaxGroupSize = 0;
};

std::string_view BytesOf(const SKernelHeader& header)
{
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

SKernelHeader MakeHeader(const SCompiledKernel& kernel)
{
    SKernelHeader header;
    header.nUniqueId = kernel.nUniqueId;
    header.nFlags = kernel.b64BitAddresses ? 1 : 0;
    header.nConstantBuffer1Elements = kernel.nConstantBuffer1Elements;
    header.nStaticLocalBytes = kernel.nStaticLocalBytes;
    header.nPrivateBytes = kernel.nPrivateBytes;
    header.nMaxGroupSize = kernel.nMaxGroupSize;
    return header;
}

std::string MakeKernelText(const std::string& strText, uint32_t nFunction)
{
    const size_t nPlace = strText.find(s_Placeholder);
    if (nPlace == std::string::npos)
    {
        return strText;
    }
    std::string strKernelText = strText;
    return strKernelText.replace(nPlace, s_Placeholder.size(), "call " + std::to_string(nFunction));
}

} // namespace

std::vector<char> WriteProgramImage(const SModule& module, const std::vector<SCompiledKernel>& vKernels,
                                    bool bDebugText)
{
    CElfWriter elf;
    if (bDebugText)
    {
        elf.AddSection(".debugil", 0, 1, module.strText);
    }
    const size_t nIL = elf.AddSection(".ovkil", 0, 1, {});
    elf.AddSection(".llvmir", 0, 1, module.strIntermediate.empty() ? "; written in IL\n" : module.strIntermediate);
    const size_t nCode = elf.AddSection(".text", SHF_ALLOC | SHF_EXECINSTR, s_nCodeAlignment, {});
    const size_t nData = elf.AddSection(".rodata", SHF_ALLOC, s_nDataAlignment, {});
    for (size_t i = 0; i < vKernels.size(); ++i)
    {
        const SCompiledKernel& kernel = vKernels[i];
        const auto Add = [&](size_t nSection, const char* pBlock, unsigned char nType, std::string_view data)
        {
            elf.AddSymbol("__OpenCL_" + kernel.strName + "_" + pBlock, nType, nSection, elf.AppendData(nSection, data),
                          data.size());
        };
        Add(nData, "metadata", STT_OBJECT, module.vKernels[i].strMetadata);
        Add(nData, "header", STT_OBJECT, BytesOf(MakeHeader(kernel)));
        Add(nIL, "ovkil", STT_OBJECT, MakeKernelText(module.strText, kernel.nUniqueId));
        Add(nCode, "kernel", STT_FUNC, WriteDeviceCode(kernel.strName, kernel.vTokens, kernel.vLines));
    }
    for (const SDebugSection& section : module.vDebugSections)
    {
        elf.AddSection(section.strName, 0, 1, section.strData);
    }
    return elf.Write();
}

const std::vector<char>& CProgramImage::GetBytes() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_pSource)
    {
        std::vector<SCompiledKernel> vKernels;
        SDiagnostic diag;
        CKernelLinker linker;
        if (linker.Assemble(m_pSource->module.strText, diag) &&
            LinkKernels(linker, m_pSource->module, m_pSource->target, vKernels, diag))
        {
            m_vBytes = WriteProgramImage(m_pSource->module, vKernels, m_pSource->bDebugText);
        }
        m_pSource.reset();
    }
    return m_vBytes;
}

} // namespace KestrelPlatform
