#include "platform/compiler/KernelLinker.h"

#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/ItemLayout.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{
namespace
{

bool IsPlaceholder(const uint32_t* pItem, const SItemLayout& layout)
{
    // The comment's text is the placeholder without its ';'.
    const std::string_view text = s_Placeholder.substr(1);
    const size_t nBytes = (layout.nTrailingWords - 1) * sizeof(uint32_t);
    return nBytes > text.size() && std::memcmp(pItem + layout.nTrailing + 1, text.data(), text.size()) == 0 &&
           reinterpret_cast<const char*>(pItem + layout.nTrailing + 1)[text.size()] == '\0';
}

uint32_t LineOf(std::string_view text, size_t nPosition)
{
    return static_cast<uint32_t>(std::count(text.begin(), text.begin() + static_cast<long>(nPosition), '\n')) + 1;
}

bool Refuse(SDiagnostic& diag, uint32_t nLine, const std::string& strMessage)
{
    diag.nLine = nLine;
    diag.nColumn = nLine == 0 ? 0 : 1;
    diag.strMessage = strMessage;
    return false;
}

bool IsCall(uint32_t nOpcode)
{
    return nOpcode == IL_OP_CALL || nOpcode == IL_OP_CALLNZ || nOpcode == IL_OP_CALL_LOGICALZ ||
           nOpcode == IL_OP_CALL_LOGICALNZ;
}

} // namespace

bool CKernelLinker::Assemble(std::string_view text, SDiagnostic& diag)
{
    if (!AssembleIL(text.data(), text.size(), m_vTokens, diag, &m_vLines))
    {
        return false;
    }
    if (!Outline())
    {
        return Refuse(diag, 0, "the assembled text doesn't decode");
    }
    const size_t nPosition = text.find(s_Placeholder);
    if (m_nPlaceholders > 1)
    {
        return Refuse(diag, LineOf(text, text.find(s_Placeholder, nPosition + 1)),
                      "a second line '" + std::string(s_Placeholder) + "', and a kernel is called in one place");
    }
    m_nPlaceholderLine = HasPlaceholder() && nPosition != std::string_view::npos ? LineOf(text, nPosition) : 0;
    return CheckCalls(diag);
}

bool CKernelLinker::Take(std::vector<uint32_t> vTokens, std::vector<uint32_t> vLines)
{
    m_vTokens = std::move(vTokens);
    m_vLines = std::move(vLines);
    SDiagnostic diag;
    return Outline() && CheckCalls(diag);
}

/// Finds functions, calls and placeholders in one pass over the items.
bool CKernelLinker::Outline()
{
    size_t nOffset = 0;
    const char* pReason = nullptr;
    SFunction* pFunction = &m_Main;
    bool bHeader = false;
    while (nOffset < m_vTokens.size())
    {
        if (!bHeader && (m_vTokens[nOffset] & s_nOpcodeMask) != IL_OP_MACRODEF)
        {
            if (m_vTokens.size() - nOffset < 2)
            {
                return false;
            }
            bHeader = true;
            nOffset += 2;
            continue;
        }
        SItemLayout layout;
        do
        {
            if (!MeasureItem(m_vTokens.data() + nOffset, m_vTokens.size() - nOffset, layout, pReason))
            {
                return false;
            }
            OutlineItem(m_vTokens.data() + nOffset, layout, nOffset, pFunction);
            nOffset += layout.nWords;
        } while (!bHeader && layout.nOpcode != IL_OP_MACROEND);
    }
    return bHeader;
}

void CKernelLinker::OutlineItem(const uint32_t* pItem, const SItemLayout& layout, size_t nOffset, SFunction*& pFunction)
{
    const bool bPlaceholder = layout.nOpcode == IL_OP_COMMENT && IsPlaceholder(pItem, layout);
    m_nPlaceholders += bPlaceholder ? 1 : 0;
    if (bPlaceholder && pFunction == &m_Main && !HasPlaceholder())
    {
        m_nPlaceholder = nOffset;
        m_nPlaceholderWords = layout.nWords;
        m_nPlaceholderInstruction = m_nInstruction;
    }
    else if (layout.nOpcode == IL_OP_FUNC)
    {
        pFunction = &m_Functions[pItem[layout.nTrailing]];
    }
    else if (IsCall(layout.nOpcode))
    {
        pFunction->vCalls.push_back(pItem[layout.nTrailing]);
        pFunction->vCallLines.push_back(CurrentLine());
    }
    else if (layout.nOpcode == IL_DCL_MAX_THREAD_PER_GROUP)
    {
        pFunction->nMaxGroupSize = pItem[layout.nTrailing];
    }
    else if (layout.nOpcode == IL_OP_DCL_NUM_THREAD_PER_GROUP && layout.nTrailingWords == 3)
    {
        std::copy_n(pItem + layout.nTrailing, 3, pFunction->nRequiredGroupSize);
    }
    m_nInstruction += IsInstructionOpcode(layout.nOpcode) ? 1 : 0;
}

bool CKernelLinker::CheckCalls(SDiagnostic& diag) const
{
    const auto Check = [&](const SFunction& function)
    {
        for (size_t i = 0; i < function.vCalls.size(); ++i)
        {
            if (m_Functions.count(function.vCalls[i]) == 0)
            {
                return Refuse(diag, function.vCallLines[i],
                              "call of function " + std::to_string(function.vCalls[i]) + ", which isn't there");
            }
        }
        return true;
    };
    return Check(m_Main) &&
           std::all_of(m_Functions.begin(), m_Functions.end(), [&](const auto& entry) { return Check(entry.second); });
}

bool CKernelLinker::CallsFromMain(uint32_t nFunction) const
{
    return std::find(m_Main.vCalls.begin(), m_Main.vCalls.end(), nFunction) != m_Main.vCalls.end();
}

void CKernelLinker::Reach(uint32_t nFunction, std::vector<const SFunction*>& vReached) const
{
    std::unordered_map<uint32_t, bool> seen;
    std::vector<uint32_t> vOpen = {nFunction};
    while (!vOpen.empty())
    {
        const uint32_t nNext = vOpen.back();
        vOpen.pop_back();
        if (seen[nNext])
        {
            continue;
        }
        seen[nNext] = true;
        const SFunction& function = m_Functions.at(nNext);
        vReached.push_back(&function);
        vOpen.insert(vOpen.end(), function.vCalls.begin(), function.vCalls.end());
    }
}

bool CKernelLinker::SetGroupSize(const SKernelMetadata& metadata, const SDeviceTarget& target, SCompiledKernel& kernel,
                                 SDiagnostic& diag) const
{
    std::vector<const SFunction*> vReached = {&m_Main};
    Reach(metadata.nUniqueId, vReached);
    uint64_t nDeclared = 0;
    for (const SFunction* pFunction : vReached)
    {
        const uint32_t* pRequired = pFunction->nRequiredGroupSize;
        const uint64_t nRequired = static_cast<uint64_t>(pRequired[0]) * pRequired[1] * pRequired[2];
        for (const uint64_t nSize : {static_cast<uint64_t>(pFunction->nMaxGroupSize), nRequired})
        {
            nDeclared = nSize != 0 && (nDeclared == 0 || nSize < nDeclared) ? nSize : nDeclared;
        }
        if (nRequired != 0)
        {
            std::copy_n(pRequired, 3, kernel.nRequiredGroupSize);
        }
    }
    if (nDeclared > target.nMaxGroupSize)
    {
        return Refuse(diag, 0,
                      "kernel " + metadata.strKernel + " declares groups of " + std::to_string(nDeclared) +
                          " work-items, the device has " + std::to_string(target.nMaxGroupSize));
    }
    kernel.nMaxGroupSize = nDeclared == 0 ? target.nMaxGroupSize : static_cast<uint32_t>(nDeclared);
    return true;
}

bool CKernelLinker::Link(const SKernelMetadata& metadata, const SDeviceTarget& target, SCompiledKernel& kernel,
                         SDiagnostic& diag) const
{
    const std::string strKernel = "kernel " + metadata.strKernel;
    if (m_Functions.count(metadata.nUniqueId) == 0)
    {
        return Refuse(diag, 0,
                      strKernel + " is function " + std::to_string(metadata.nUniqueId) + ", which isn't there");
    }
    if (!HasPlaceholder() && !CallsFromMain(metadata.nUniqueId))
    {
        return Refuse(diag, 0,
                      strKernel + ": the main body has neither the line '" + std::string(s_Placeholder) +
                          "' nor a call of function " + std::to_string(metadata.nUniqueId));
    }
    if (metadata.b64BitAddresses && !target.b64BitAddresses)
    {
        return Refuse(diag, 0, strKernel + " has 64-bit addresses, the device has 32-bit ones");
    }
    kernel.strName = metadata.strKernel;
    kernel.nUniqueId = metadata.nUniqueId;
    kernel.vArguments = metadata.vArguments;
    kernel.vSamplers = metadata.vSamplers;
    kernel.vFormats = metadata.vFormats;
    kernel.strAttributes = metadata.strAttributes;
    kernel.vConstants = metadata.vConstants;
    kernel.nConstantBuffer1Elements = metadata.nConstantBuffer1Elements;
    kernel.nStaticLocalBytes = metadata.nLocalBytes;
    kernel.nPrivateBytes = metadata.nPrivateBytes;
    kernel.b64BitAddresses = metadata.b64BitAddresses;
    kernel.vTokens = m_vTokens;
    kernel.vLines = m_vLines;
    if (HasPlaceholder())
    {
        const auto place = kernel.vTokens.begin() + static_cast<long>(m_nPlaceholder);
        place[0] = IL_OP_CALL;
        place[1] = metadata.nUniqueId;
        kernel.vTokens.erase(place + 2, place + static_cast<long>(m_nPlaceholderWords));
        if (m_nPlaceholderInstruction <= kernel.vLines.size())
        {
            kernel.vLines.insert(kernel.vLines.begin() + static_cast<long>(m_nPlaceholderInstruction),
                                 m_nPlaceholderLine);
        }
    }
    return SetGroupSize(metadata, target, kernel, diag);
}

bool LinkKernels(const CKernelLinker& linker, const SModule& module, const SDeviceTarget& target,
                 std::vector<SCompiledKernel>& vKernels, SDiagnostic& diag)
{
    for (const SModuleKernel& kernel : module.vKernels)
    {
        SCompiledKernel compiled;
        if (!linker.Link(kernel.metadata, target, compiled, diag))
        {
            return false;
        }
        vKernels.push_back(std::move(compiled));
    }
    return true;
}

} // namespace KestrelPlatform
