#include "tools/kestrel/debug/Faults.h"

#include "platform/runtime/PlatformControl.h"
#include "tools/kestrel/KernelText.h"

namespace KestrelTool
{

namespace
{

/// An instruction with all its components spelled out, since a printer may leave out repeated ones.
std::string SpellOut(const std::string& strText)
{
    static const std::string s_strComponents = "xyzw01_";
    std::string strSpelled;
    size_t nLetters = 4;
    for (size_t n = 0; n <= strText.size(); ++n)
    {
        const char c = n < strText.size() ? strText[n] : '\0';
        const bool bComponent = nLetters < 4 && s_strComponents.find(c) != std::string::npos && c != '\0';
        if (!bComponent)
        {
            strSpelled.append(nLetters > 0 ? 4 - nLetters : 0, strSpelled.empty() ? ' ' : strSpelled.back());
            nLetters = c == '.' ? 0 : 4;
        }
        nLetters += bComponent ? 1 : 0;
        strSpelled.append(c != '\0' ? 1 : 0, c);
    }
    return strSpelled;
}

/// The line of the kernel's own text that stands for an instruction of a patched copy. Patching
/// leaves instructions as they are and puts others between them, so it is the one with the same text
/// and as many of its like in front.
unsigned int FindOriginal(const CListing& listing, const CListing& patched, unsigned int nInstruction)
{
    const std::string strText = SpellOut(patched.GetLine(patched.GetLineOfInstruction(nInstruction)));
    size_t nBefore = 0;
    for (unsigned int n = 0; n < nInstruction; ++n)
    {
        nBefore += SpellOut(patched.GetLine(patched.GetLineOfInstruction(n))) == strText;
    }
    for (unsigned int n = 0; listing.GetLineOfInstruction(n) != CListing::NoLine; ++n)
    {
        const unsigned int nLine = listing.GetLineOfInstruction(n);
        if (SpellOut(listing.GetLine(nLine)) == strText && nBefore-- == 0)
        {
            return nLine;
        }
    }
    return CListing::NoLine;
}

} // namespace

CFaults::CFaults(const CLibraries& libraries)
{
    cl_platform_id platform = nullptr;
    if (libraries.cl.clGetExtensionFunctionAddressForPlatform == nullptr ||
        libraries.cl.clGetPlatformIDs(1, &platform, nullptr) != CL_SUCCESS)
    {
        return;
    }
    void* pFunction = libraries.cl.clGetExtensionFunctionAddressForPlatform(platform, "kestrelPlatformControl");
    if (pFunction != nullptr)
    {
        m_pControl = reinterpret_cast<const SPlatformControl* (*)()>(pFunction)();
    }
}

std::optional<SFault> CFaults::Check(const CListing& listing, const std::vector<char>& vImage)
{
    if (m_pControl == nullptr)
    {
        return std::nullopt;
    }
    SPlatformFault found = {};
    m_pControl->GetLastFault(&found);
    const bool bNews =
        (found.nBadAccesses != 0 && m_nKnownAccesses == 0) || (found.nUnreachedBarriers != 0 && m_nKnownBarriers == 0);
    m_nKnownAccesses = std::max(m_nKnownAccesses, found.nBadAccesses);
    m_nKnownBarriers = std::max(m_nKnownBarriers, found.nUnreachedBarriers);
    if (!bNews)
    {
        return std::nullopt;
    }
    SFault fault;
    fault.nBadAccesses = found.nBadAccesses;
    fault.nWorkItem = found.nWorkItem;
    fault.nAddress = found.nAddress;
    fault.bWrite = found.bWrite != 0;
    fault.nUnreachedBarriers = found.nUnreachedBarriers;
    fault.nLine = vImage.empty() ? listing.GetLineOfInstruction(found.nInstruction)
                                 : FindOriginal(listing, CListing(ReadLinesWithCall(vImage, 0)), found.nInstruction);
    return fault;
}

std::vector<std::string> ReadLinesWithCall(const std::vector<char>& vBinary, unsigned int nLabel)
{
    std::vector<std::string> vLines = ReadKernelText(vBinary);
    for (std::string& strLine : vLines)
    {
        if (strLine == ";$$$$$$$$$$")
        {
            strLine = "call " + std::to_string(nLabel);
        }
    }
    return vLines;
}

} // namespace KestrelTool
