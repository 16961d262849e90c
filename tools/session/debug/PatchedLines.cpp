#include "tools/session/debug/PatchedLines.h"

#include "tools/session/debug/ReadListing.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

namespace KestrelTool
{

namespace
{

/// Text with all components written out, since a printer may omit repeated ones.
std::string SpellComponents(const std::string& strText)
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

/// Instructions with two names.
const char* const s_Names[][2] = {{"and", "iand"},     {"ldexp", "dldexp"},
                                  {"frexp", "dfrexp"}, {"ubit_reverse", "ubit_reverser"},
                                  {"f2u4", "f_2_u4"},  {"invariant_mov", "invariant_move"}};

/// An instruction in one of the ways in which it can be written. What it writes comes first, and "r1.y" is "r1._y__".
std::string SpellOut(const std::string& strText)
{
    std::string strSpelled = SpellComponents(strText);
    for (const auto& names : s_Names)
    {
        const std::string strName = std::string(names[1]) + " ";
        strSpelled = strSpelled.compare(0, strName.size(), strName) == 0
                         ? names[0] + strSpelled.substr(strName.size() - 1)
                         : strSpelled;
    }
    const size_t nDot = strSpelled.find('.', std::min(strSpelled.find(' '), strSpelled.size()));
    if (nDot < strSpelled.find(','))
    {
        const auto itEnd = strSpelled.begin() + static_cast<std::ptrdiff_t>(std::min(nDot + 5, strSpelled.size()));
        const auto itFirst = strSpelled.begin() + static_cast<std::ptrdiff_t>(nDot);
        strSpelled.erase(std::unique(itFirst, std::remove(itFirst, itEnd, '_')), itEnd);
    }
    return strSpelled;
}

bool BeginsFunction(const CListing& listing, unsigned int nInstruction)
{
    return listing.GetMnemonic(listing.GetLineOfInstruction(nInstruction)) == "func";
}

/// For "func 1026 ;walk", or with the name in a line below: the number, and the name or nothing.
std::pair<std::string, std::string> ReadFunctionHead(const CListing& listing, unsigned int nInstruction)
{
    const unsigned int nLine = listing.GetLineOfInstruction(nInstruction);
    const std::string& strHead = listing.GetLine(nLine);
    const std::string& strBelow = listing.GetLine(nLine + 1);
    const size_t nComment = strHead.find(';');
    const std::string strName = nComment != std::string::npos             ? strHead.substr(nComment)
                                : !strBelow.empty() && strBelow[0] == ';' ? strBelow
                                                                          : std::string();
    const size_t nNumber = strHead.find_first_of("0123456789");
    const size_t nEnd = strHead.find_first_not_of("0123456789", std::min(nNumber, strHead.size()));
    return {nNumber != std::string::npos ? strHead.substr(nNumber, nEnd - nNumber) : std::string(), strName};
}

/// A function's lines by their instructions' texts, in their order.
struct SFunctionLines
{
    std::pair<std::string, std::string> head; ///< empty for the main body
    std::map<std::string, std::vector<unsigned int>> mapLines;
};

/// Calls and heads of functions without their numbers, which a copy's differ in.
std::string SpellOut(const CListing& listing, unsigned int nInstruction)
{
    const unsigned int nLine = listing.GetLineOfInstruction(nInstruction);
    const std::string strMnemonic = listing.GetMnemonic(nLine);
    return strMnemonic == "func" || strMnemonic.compare(0, 4, "call") == 0 ? strMnemonic
                                                                           : SpellOut(listing.GetLine(nLine));
}

std::vector<SFunctionLines> ReadFunctions(const CListing& listing)
{
    std::vector<SFunctionLines> vFunctions(1);
    for (unsigned int n = 0; listing.GetLineOfInstruction(n) != CListing::NoLine; ++n)
    {
        if (BeginsFunction(listing, n))
        {
            vFunctions.emplace_back();
            vFunctions.back().head = ReadFunctionHead(listing, n);
        }
        vFunctions.back().mapLines[SpellOut(listing, n)].push_back(listing.GetLineOfInstruction(n));
    }
    return vFunctions;
}

/// The function that a patched copy's function comes from, or null. Compares numbers, or names since the debugger gives
/// a function's copy a new number.
const SFunctionLines* FindFunctionLike(const std::vector<SFunctionLines>& vFunctions,
                                       const std::pair<std::string, std::string>& head)
{
    const auto find = [&](auto isLike)
    {
        const auto it = std::find_if(vFunctions.begin() + 1, vFunctions.end(), isLike);
        return it != vFunctions.end() ? &*it : nullptr;
    };
    const SFunctionLines* const pNumber = find([&](const SFunctionLines& own) { return own.head.first == head.first; });
    return pNumber != nullptr || head.second.empty()
               ? pNumber
               : find([&](const SFunctionLines& own) { return own.head.second == head.second; });
}

} // namespace

CPatchedLines::CPatchedLines(const CListing& listing, const std::vector<char>& vImage)
{
    if (vImage.empty())
    {
        for (unsigned int n = 0; listing.GetLineOfInstruction(n) != CListing::NoLine; ++n)
        {
            m_vLines.push_back({listing.GetLineOfInstruction(n), BeginsFunction(listing, n)});
        }
        return;
    }
    const CListing patched(ReadLinesWithCall(vImage, 0));
    const std::vector<SFunctionLines> vFunctions = ReadFunctions(listing);
    const SFunctionLines* pFunction = &vFunctions.front();
    std::map<std::string, size_t> mapSeen; ///< in this function
    for (unsigned int n = 0; patched.GetLineOfInstruction(n) != CListing::NoLine; ++n)
    {
        SLine line;
        line.bBeginsFunction = BeginsFunction(patched, n);
        if (line.bBeginsFunction)
        {
            pFunction = FindFunctionLike(vFunctions, ReadFunctionHead(patched, n));
            mapSeen.clear();
        }
        const std::string strText = SpellOut(patched, n);
        const size_t nBefore = mapSeen[strText]++;
        if (pFunction != nullptr)
        {
            const auto it = pFunction->mapLines.find(strText);
            line.nLine =
                it != pFunction->mapLines.end() && nBefore < it->second.size() ? it->second[nBefore] : CListing::NoLine;
        }
        m_vLines.push_back(line);
    }
}

unsigned int CPatchedLines::Find(uint32_t nInstruction) const
{
    return nInstruction < m_vLines.size() ? m_vLines[nInstruction].nLine : CListing::NoLine;
}

unsigned int CPatchedLines::FindNext(uint32_t nInstruction) const
{
    unsigned int nLine = Find(nInstruction);
    for (size_t n = nInstruction + size_t{1}; nLine == CListing::NoLine && n < m_vLines.size(); ++n)
    {
        if (m_vLines[n].bBeginsFunction)
        {
            break;
        }
        nLine = m_vLines[n].nLine;
    }
    return nLine;
}

} // namespace KestrelTool
