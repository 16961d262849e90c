#include "tools/kestrel/debug/Faults.h"

#include "platform/runtime/PlatformControl.h"
#include "tools/kestrel/KernelText.h"

#include <algorithm>
#include <map>

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

void CFaults::Forget()
{
    m_nKnownAccesses = m_nKnownBarriers = 0;
    m_Known.clear();
}

std::optional<SFaults> CFaults::Check(const CListing& listing, const std::vector<char>& vImage)
{
    if (m_pControl == nullptr)
    {
        return std::nullopt;
    }
    SPlatformFault found = {};
    m_pControl->GetLastFault(&found);
    // Each run begins at the kernel's first instruction, so what is known comes again.
    const bool bNews = found.nBadAccesses > m_nKnownAccesses || found.nUnreachedBarriers > m_nKnownBarriers;
    m_nKnownAccesses = std::max(m_nKnownAccesses, found.nBadAccesses);
    m_nKnownBarriers = std::max(m_nKnownBarriers, found.nUnreachedBarriers);
    if (!bNews)
    {
        return std::nullopt;
    }
    std::vector<SPlatformFaultRecord> vRecords(m_pControl->GetFaultRecords(nullptr, 0));
    vRecords.resize(std::min<size_t>(
        vRecords.size(), m_pControl->GetFaultRecords(vRecords.data(), static_cast<uint32_t>(vRecords.size()))));
    SFaults faults;
    faults.nAccesses = found.nBadAccesses;
    faults.nBarriers = found.nUnreachedBarriers;
    faults.bIncomplete = found.nBadAccesses + found.nUnreachedBarriers > vRecords.size();
    const CListing patched(vImage.empty() ? std::vector<std::string>() : ReadLinesWithCall(vImage, 0));
    std::map<uint32_t, unsigned int> mapLines;
    for (const SPlatformFaultRecord& record : vRecords)
    {
        const auto entry = mapLines.emplace(record.nInstruction, CListing::NoLine);
        if (entry.second)
        {
            entry.first->second = vImage.empty() ? listing.GetLineOfInstruction(record.nInstruction)
                                                 : FindOriginal(listing, patched, record.nInstruction);
        }
        const SFault fault = {entry.first->second, record.nWorkItem, record.nAddress, record.bWrite != 0,
                              record.bBarrier != 0};
        if (m_Known.emplace(fault.bBarrier, fault.nLine, fault.nWorkItem, fault.nAddress).second)
        {
            faults.vShown.push_back(fault);
        }
    }
    return faults;
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
