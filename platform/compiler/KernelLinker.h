#ifndef KESTREL_PLATFORM_COMPILER_KERNELLINKER_H
#define KESTREL_PLATFORM_COMPILER_KERNELLINKER_H

#include "platform/compiler/Assembler.h"
#include "platform/compiler/KernelMetadata.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KestrelPlatform
{

struct SItemLayout;
struct SModule;

/// One assembled IL text. Each kernel's stream is the text with a call in place of the placeholder.
class CKernelLinker
{
public:
    /// Assembles the text and finds its functions, calls and placeholder.
    bool Assemble(std::string_view text, SDiagnostic& diag);

    /// Takes a stream that was assembled before. \return false if it doesn't decode or a call has no function
    bool Take(std::vector<uint32_t> vTokens, std::vector<uint32_t> vLines);

    /// Whether the text has the placeholder, so that each of its kernels can be linked.
    bool HasPlaceholder() const { return m_nPlaceholder != 0; }

    /// Whether the main body calls the function already, so that no placeholder is needed.
    bool CallsFromMain(uint32_t nFunction) const;

    /// Makes the kernel with this metadata: its stream, its lines, and what metadata and declarations say of it.
    ///
    /// \return false, with the reason, if the kernel's function or one that it calls is missing, if the main body has
    ///         neither the placeholder nor the call, or if the declared group is larger than the device's
    bool Link(const SKernelMetadata& metadata, const SDeviceTarget& target, SCompiledKernel& kernel,
              SDiagnostic& diag) const;

private:
    /// A function, or the main body, which has no number.
    struct SFunction
    {
        std::vector<uint32_t> vCalls;     ///< numbers of the called functions
        std::vector<uint32_t> vCallLines; ///< the line of each call
        uint32_t nMaxGroupSize = 0;       ///< 0: not declared
        uint32_t nRequiredGroupSize[3] = {0, 0, 0};
    };

    bool Outline();
    void OutlineItem(const uint32_t* pItem, const SItemLayout& layout, size_t nOffset, SFunction*& pFunction);
    bool CheckCalls(SDiagnostic& diag) const;
    uint32_t CurrentLine() const { return m_nInstruction < m_vLines.size() ? m_vLines[m_nInstruction] : 0; }
    void Reach(uint32_t nFunction, std::vector<const SFunction*>& vReached) const;
    bool SetGroupSize(const SKernelMetadata& metadata, const SDeviceTarget& target, SCompiledKernel& kernel,
                      SDiagnostic& diag) const;

    std::vector<uint32_t> m_vTokens;
    std::vector<uint32_t> m_vLines;
    SFunction m_Main;
    std::unordered_map<uint32_t, SFunction> m_Functions;
    size_t m_nPlaceholders = 0; ///< how many the text has, in the main body or not
    size_t m_nPlaceholder = 0;  ///< offset of the one in the main body, 0 for none
    size_t m_nPlaceholderWords = 0;
    size_t m_nPlaceholderInstruction = 0; ///< number of instructions before it
    uint32_t m_nPlaceholderLine = 0;
    size_t m_nInstruction = 0; ///< the current one, while outlining
};

/// Links each kernel of a module, whose text the linker has assembled. \return as Link, with the kernels in their order
bool LinkKernels(const CKernelLinker& linker, const SModule& module, const SDeviceTarget& target,
                 std::vector<SCompiledKernel>& vKernels, SDiagnostic& diag);

} // namespace KestrelPlatform

#endif
