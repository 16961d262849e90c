#include "tools/session/debug/CodeMap.h"

#include <algorithm>
#include <cstdlib>

namespace KestrelTool
{

namespace
{

/// The number after a mnemonic, in brackets or after a blank.
unsigned int ReadLabel(const std::string& strLine)
{
    const size_t nDigit = strLine.find_first_of("0123456789");
    return nDigit == std::string::npos ? 0
                                       : static_cast<unsigned int>(std::strtoul(strLine.c_str() + nDigit, nullptr, 0));
}

bool IsHead(const std::string& strLine, const char* pszWord)
{
    return strLine.compare(0, std::string(pszWord).size(), pszWord) == 0;
}

/// The name in the comment after a function's head: ";scale", or the wrapper's "__OpenCL_scale_kernel".
std::string ReadName(const std::string& strLine)
{
    if (strLine.size() < 2 || strLine[0] != ';' || strLine.find_first_of(" \t") != std::string::npos)
    {
        return std::string();
    }
    const std::string strName = strLine.substr(1);
    const std::string strPrefix = "__OpenCL_";
    const std::string strSuffix = "_kernel";
    const bool bWrapper =
        strName.compare(0, strPrefix.size(), strPrefix) == 0 && strName.size() > strPrefix.size() + strSuffix.size();
    return bWrapper ? strName.substr(strPrefix.size(), strName.size() - strPrefix.size() - strSuffix.size()) : strName;
}

} // namespace

CCodeMap::CCodeMap(const CListing& listing)
{
    FindFunctions(listing);
    FindBlocks(listing);
    std::map<std::pair<unsigned int, bool>, size_t> mapFunctions;
    for (size_t n = 0; n < m_vFunctions.size(); ++n)
    {
        mapFunctions.emplace(std::make_pair(m_vFunctions[n].nLabel, m_vFunctions[n].bMacro), n);
    }
    const auto noteCall = [&](unsigned int nLine, unsigned int nLabel, bool bMacro)
    {
        const auto it = mapFunctions.find({nLabel, bMacro});
        if (it != mapFunctions.end())
        {
            m_vFunctions[it->second].vCallLines.push_back(nLine);
            m_mapCallees.emplace(nLine, it->second);
        }
    };
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        const std::string& strLine = listing.GetLine(nLine);
        m_vNext.push_back(listing.GetNextInstruction(nLine));
        if (IsHead(strLine, "call"))
        {
            // In a conditional call, the label follows a comma.
            const size_t nComma = strLine.find(',');
            noteCall(nLine, ReadLabel(nComma == std::string::npos ? strLine : strLine.substr(nComma)), false);
        }
        else if (IsHead(strLine, "mcall("))
        {
            noteCall(nLine, ReadLabel(strLine), true);
        }
    }
    m_nFirstStop = listing.GetFirstStop();
}

void CCodeMap::FindFunctions(const CListing& listing)
{
    bool bOpen = false;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        const std::string& strLine = listing.GetLine(nLine);
        const bool bMacro = IsHead(strLine, "mdef(") && strLine.find("_outline") != std::string::npos;
        if (IsHead(strLine, "func ") || bMacro)
        {
            SFunction function;
            function.nLabel = ReadLabel(strLine);
            function.bMacro = bMacro;
            function.strName = ReadName(listing.GetLine(nLine + 1));
            function.nHead = nLine;
            function.nEntry = bMacro ? listing.GetNextInstruction(nLine) : nLine;
            function.nEnd = static_cast<unsigned int>(listing.GetLineCount());
            m_vFunctions.push_back(function);
            bOpen = true;
        }
        else if (bOpen && (IsHead(strLine, "endfunc") || IsHead(strLine, "mend")))
        {
            m_vFunctions.back().nEnd = nLine;
            bOpen = false;
        }
    }
}

void CCodeMap::FindBlocks(const CListing& listing)
{
    std::vector<SBlock> vOpen;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        const std::string strMnemonic = listing.GetMnemonic(nLine);
        if (strMnemonic == "whileloop" || strMnemonic == "switch" || IsHead(strMnemonic, "if"))
        {
            SBlock block;
            block.bLoop = strMnemonic == "whileloop";
            block.nStart = nLine;
            vOpen.push_back(block);
        }
        else if (strMnemonic == "else" && !vOpen.empty())
        {
            vOpen.back().nElse = nLine;
        }
        else if ((strMnemonic == "endloop" || strMnemonic == "endswitch" || strMnemonic == "endif") && !vOpen.empty())
        {
            vOpen.back().nEnd = nLine;
            m_vBlocks.push_back(vOpen.back());
            vOpen.pop_back();
        }
    }
}

const CCodeMap::SFunction* CCodeMap::FindFunction(unsigned int nLine) const
{
    const auto itNext =
        std::upper_bound(m_vFunctions.begin(), m_vFunctions.end(), nLine,
                         [](unsigned int nValue, const SFunction& function) { return nValue < function.nHead; });
    return itNext != m_vFunctions.begin() && nLine <= std::prev(itNext)->nEnd ? &*std::prev(itNext) : nullptr;
}

const CCodeMap::SFunction* CCodeMap::FindCallee(unsigned int nLine) const
{
    const auto it = m_mapCallees.find(nLine);
    return it != m_mapCallees.end() ? &m_vFunctions[it->second] : nullptr;
}

const CCodeMap::SFunction* CCodeMap::FindLabel(unsigned int nLabel) const
{
    const auto it = std::find_if(m_vFunctions.begin(), m_vFunctions.end(),
                                 [&](const SFunction& function) { return function.nLabel == nLabel; });
    return it != m_vFunctions.end() ? &*it : nullptr;
}

const CCodeMap::SFunction* CCodeMap::FindName(const std::string& strName) const
{
    const auto it = std::find_if(m_vFunctions.begin(), m_vFunctions.end(),
                                 [&](const SFunction& function) { return function.strName == strName; });
    return it != m_vFunctions.end() ? &*it : nullptr;
}

std::set<unsigned int> CCodeMap::FindLoopHeads(const std::set<unsigned int>& lines) const
{
    // The given lines, the calls of the functions that contain them, and so on.
    std::set<unsigned int> held = lines;
    std::vector<unsigned int> vLeft(lines.begin(), lines.end());
    while (!vLeft.empty())
    {
        const SFunction* const pFunction = FindFunction(vLeft.back());
        vLeft.pop_back();
        for (const unsigned int nCall : pFunction != nullptr ? pFunction->vCallLines : std::vector<unsigned int>())
        {
            if (held.insert(nCall).second)
            {
                vLeft.push_back(nCall);
            }
        }
    }
    std::set<unsigned int> heads;
    for (const SBlock& loop : m_vBlocks)
    {
        const auto itHeld = held.lower_bound(loop.nStart);
        const bool bHolds = itHeld != held.end() && *itHeld <= loop.nEnd;
        if (loop.bLoop && bHolds && m_vNext[loop.nStart] < loop.nEnd)
        {
            heads.insert(m_vNext[loop.nStart]);
        }
    }
    return heads;
}

std::set<unsigned int> CCodeMap::FindInsides(const std::set<unsigned int>& lines) const
{
    std::set<unsigned int> insides;
    for (const SBlock& block : m_vBlocks)
    {
        const bool bAsked = lines.count(block.nEnd) != 0 || (block.nElse != 0 && lines.count(block.nElse) != 0);
        if (bAsked && m_vNext[block.nStart] < block.nEnd)
        {
            insides.insert(m_vNext[block.nStart]);
        }
    }
    return insides;
}

bool CCodeMap::FindLoop(unsigned int nLine, unsigned int& nStart, unsigned int& nEnd) const
{
    // Inner blocks end first, so they come first.
    const auto it =
        std::find_if(m_vBlocks.begin(), m_vBlocks.end(),
                     [&](const SBlock& block) { return block.bLoop && nLine > block.nStart && nLine <= block.nEnd; });
    if (it == m_vBlocks.end())
    {
        return false;
    }
    nStart = it->nStart;
    nEnd = it->nEnd;
    return true;
}

bool CCodeMap::MayComeAgain(unsigned int nLine, const std::set<unsigned int>& stops) const
{
    unsigned int nStart = 0;
    unsigned int nEnd = 0;
    if (FindLoop(nLine, nStart, nEnd))
    {
        return stops.count(m_vNext[nStart]) == 0;
    }
    const SFunction* const pFunction = FindFunction(nLine);
    // The launch calls the kernel once, from outside of all functions.
    return pFunction == nullptr || std::any_of(pFunction->vCallLines.begin(), pFunction->vCallLines.end(),
                                               [this](unsigned int nCall) { return FindFunction(nCall) != nullptr; });
}

size_t CCodeMap::CountBlocks(unsigned int nFrom, unsigned int nLine) const
{
    return static_cast<size_t>(std::count_if(
        m_vBlocks.begin(), m_vBlocks.end(),
        [&](const SBlock& block) { return block.nStart >= nFrom && block.nStart < nLine && nLine < block.nEnd; }));
}

} // namespace KestrelTool
