#include "platform/compiler/CTokens.h"

#include <algorithm>
#include <map>

namespace KestrelPlatform
{
namespace
{

/// Macros that stand in each other's text double its length with every one.
const size_t s_nMostTokens = 200000;
const size_t s_nDeepest = 200;

typedef std::vector<SCToken> CTokenList;

struct SMacro
{
    bool bFunction = false;
    std::vector<std::string> vParameters;
    CTokenList vBody;
};

class CPreprocessor
{
public:
    CPreprocessor(const CTokenList& vTokens, CTokenList& vExpanded, SDiagnostic& diag)
        : m_vTokens(vTokens), m_vExpanded(vExpanded), m_diag(diag)
    {
    }

    bool Run()
    {
        CTokenList vText;
        while (m_vTokens[m_nNext].eKind != SCToken::End)
        {
            const SCToken& token = m_vTokens[m_nNext];
            if (token.bLineStart && token.Is("#"))
            {
                if (!Expand(vText, m_vExpanded) || !Directive())
                {
                    return false;
                }
                vText.clear();
                continue;
            }
            if (IsTaken())
            {
                vText.push_back(token);
            }
            ++m_nNext;
        }
        if (!m_vConditions.empty())
        {
            return Fail(m_vTokens[m_nNext], "expected '#endif'");
        }
        if (!Expand(vText, m_vExpanded))
        {
            return false;
        }
        m_vExpanded.push_back(m_vTokens[m_nNext]);
        return true;
    }

private:
    bool Fail(const SCToken& token, const std::string& strMessage) { return FailAt(token, strMessage, m_diag); }

    bool IsTaken() const { return std::find(m_vConditions.begin(), m_vConditions.end(), false) == m_vConditions.end(); }

    bool Directive()
    {
        const SCToken mark = m_vTokens[m_nNext++];
        CTokenList vLine;
        while (m_vTokens[m_nNext].eKind != SCToken::End && !m_vTokens[m_nNext].bLineStart)
        {
            vLine.push_back(m_vTokens[m_nNext++]);
        }
        if (vLine.empty())
        {
            return true;
        }
        const std::string& strName = vLine[0].strText;
        if (strName == "ifdef" || strName == "ifndef")
        {
            const bool bDefined = vLine.size() > 1 && m_mapMacros.count(vLine[1].strText) != 0;
            m_vConditions.push_back(bDefined == (strName == "ifdef"));
            return true;
        }
        if (strName == "else" || strName == "endif")
        {
            return Close(vLine[0], strName == "else");
        }
        if (!IsTaken() || strName == "pragma")
        {
            return true;
        }
        if (vLine.size() > 1 && strName == "undef")
        {
            m_mapMacros.erase(vLine[1].strText);
            return true;
        }
        if (vLine.size() > 1 && strName == "define" && vLine[1].eKind == SCToken::Word)
        {
            return Define(vLine);
        }
        return Fail(mark, "the directive '#" + strName + "' isn't known here");
    }

    bool Close(const SCToken& token, bool bElse)
    {
        if (m_vConditions.empty())
        {
            return Fail(token, "'#" + token.strText + "' closes nothing");
        }
        const bool bWas = m_vConditions.back();
        m_vConditions.pop_back();
        if (bElse)
        {
            m_vConditions.push_back(!bWas);
        }
        return true;
    }

    bool Define(const CTokenList& vLine)
    {
        SMacro macro;
        size_t n = 2;
        macro.bFunction = n < vLine.size() && vLine[n].Is("(") && !vLine[n].bBlank;
        if (macro.bFunction)
        {
            for (++n; n < vLine.size() && !vLine[n].Is(")"); ++n)
            {
                if (vLine[n].eKind == SCToken::Word)
                {
                    macro.vParameters.push_back(vLine[n].strText);
                }
                else if (!vLine[n].Is(","))
                {
                    return Fail(vLine[n], "expected a parameter of the macro");
                }
            }
            if (n++ == vLine.size())
            {
                return Fail(vLine.back(), "expected ')' behind the macro's parameters");
            }
        }
        macro.vBody.assign(vLine.begin() + static_cast<std::ptrdiff_t>(n), vLine.end());
        m_mapMacros[vLine[1].strText] = macro;
        return true;
    }

    /// Appends a list with its macros expanded. A macro's own name in its text stays.
    bool Expand(const CTokenList& vIn, CTokenList& vOut)
    {
        for (size_t n = 0; n < vIn.size(); ++n)
        {
            const auto it = vIn[n].eKind == SCToken::Word ? m_mapMacros.find(vIn[n].strText) : m_mapMacros.end();
            const bool bOpen = std::find(m_vOpen.begin(), m_vOpen.end(), vIn[n].strText) != m_vOpen.end();
            const bool bCall = n + 1 < vIn.size() && vIn[n + 1].Is("(");
            if (it == m_mapMacros.end() || bOpen || (it->second.bFunction && !bCall))
            {
                vOut.push_back(vIn[n]);
            }
            else if (!ExpandMacro(it->second, vIn, n, vOut))
            {
                return false;
            }
            if (vOut.size() > s_nMostTokens)
            {
                return Fail(vIn[n], "the macros expand to more than this compiler takes");
            }
        }
        return true;
    }

    /// \param n at the macro's name; moves to the last token of its call
    bool ExpandMacro(const SMacro& macro, const CTokenList& vIn, size_t& n, CTokenList& vOut)
    {
        const SCToken& name = vIn[n];
        if (m_nDepth == s_nDeepest)
        {
            return Fail(name, "the macros are nested too deeply");
        }
        ++m_nDepth;
        const bool bDone = ExpandText(macro, vIn, n, vOut);
        --m_nDepth;
        return bDone;
    }

    bool ExpandText(const SMacro& macro, const CTokenList& vIn, size_t& n, CTokenList& vOut)
    {
        const SCToken& name = vIn[n];
        std::vector<CTokenList> vArguments;
        if (macro.bFunction && !TakeArguments(macro, vIn, n, vArguments))
        {
            return false;
        }
        CTokenList vText;
        if (!Substitute(macro, vArguments, vText))
        {
            return false;
        }
        for (SCToken& token : vText)
        {
            token.nLine = name.nLine;
            token.nColumn = name.nColumn;
            token.bLineStart = false;
        }
        m_vOpen.push_back(name.strText);
        const bool bDone = Expand(vText, vOut);
        m_vOpen.pop_back();
        return bDone;
    }

    bool TakeArguments(const SMacro& macro, const CTokenList& vIn, size_t& n, std::vector<CTokenList>& vArguments)
    {
        const SCToken& name = vIn[n];
        vArguments.emplace_back();
        size_t nDepth = 1;
        for (n += 2; n < vIn.size(); ++n)
        {
            nDepth += vIn[n].Is("(") ? 1 : 0;
            nDepth -= vIn[n].Is(")") ? 1 : 0;
            if (nDepth == 0)
            {
                break;
            }
            if (nDepth == 1 && vIn[n].Is(","))
            {
                vArguments.emplace_back();
            }
            else
            {
                vArguments.back().push_back(vIn[n]);
            }
        }
        if (nDepth != 0)
        {
            return Fail(name, "expected ')' behind the arguments of the macro '" + name.strText + "'");
        }
        if (macro.vParameters.empty() && vArguments.size() == 1 && vArguments[0].empty())
        {
            vArguments.clear();
        }
        return vArguments.size() == macro.vParameters.size() ||
               Fail(name, "the macro '" + name.strText + "' takes " + std::to_string(macro.vParameters.size()) +
                              " arguments");
    }

    const CTokenList* FindArgument(const SMacro& macro, const std::vector<CTokenList>& vArguments, const SCToken& token)
    {
        const auto it = std::find(macro.vParameters.begin(), macro.vParameters.end(), token.strText);
        const auto nIndex = static_cast<size_t>(it - macro.vParameters.begin());
        return it == macro.vParameters.end() || nIndex >= vArguments.size() ? nullptr : &vArguments[nIndex];
    }

    /// Puts the arguments in the parameters' places: expanded, but beside "##", where they are joined as they stand.
    bool Substitute(const SMacro& macro, const std::vector<CTokenList>& vArguments, CTokenList& vText)
    {
        const CTokenList& vBody = macro.vBody;
        // Each argument is expanded once, however often it stands in the text.
        std::vector<CTokenList> vExpandedArguments(vArguments.size());
        for (size_t n = 0; n < vArguments.size(); ++n)
        {
            if (!Expand(vArguments[n], vExpandedArguments[n]))
            {
                return false;
            }
        }
        for (size_t n = 0; n < vBody.size(); ++n)
        {
            const bool bJoinsNext = n + 1 < vBody.size() && vBody[n + 1].Is("##");
            const CTokenList* const pArgument = FindArgument(macro, vArguments, vBody[n]);
            CTokenList vPart = {vBody[n]};
            if (pArgument)
            {
                vPart =
                    bJoinsNext ? *pArgument : vExpandedArguments[static_cast<size_t>(pArgument - vArguments.data())];
            }
            while (n + 2 < vBody.size() && vBody[n + 1].Is("##"))
            {
                const CTokenList* const pNext = FindArgument(macro, vArguments, vBody[n + 2]);
                Join(vPart, pNext ? *pNext : CTokenList{vBody[n + 2]});
                n += 2;
            }
            vText.insert(vText.end(), vPart.begin(), vPart.end());
            if (vText.size() > s_nMostTokens)
            {
                return Fail(vBody[n], "the macros expand to more than this compiler takes");
            }
        }
        return true;
    }

    static void Join(CTokenList& vLeft, const CTokenList& vRight)
    {
        if (vLeft.empty() || vRight.empty())
        {
            vLeft.insert(vLeft.end(), vRight.begin(), vRight.end());
            return;
        }
        CTokenList vJoined = SplitC(vLeft.back().strText + vRight.front().strText);
        vJoined.pop_back();
        vLeft.pop_back();
        vLeft.insert(vLeft.end(), vJoined.begin(), vJoined.end());
        vLeft.insert(vLeft.end(), vRight.begin() + 1, vRight.end());
    }

    const CTokenList& m_vTokens;
    CTokenList& m_vExpanded;
    SDiagnostic& m_diag;
    size_t m_nNext = 0;
    std::map<std::string, SMacro> m_mapMacros;
    std::vector<bool> m_vConditions;
    std::vector<std::string> m_vOpen; ///< macros whose text is being expanded
    size_t m_nDepth = 0;              ///< macros under way, those in arguments too
};

} // namespace

bool PreprocessC(const std::vector<SCToken>& vTokens, std::vector<SCToken>& vExpanded, SDiagnostic& diag)
{
    return CPreprocessor(vTokens, vExpanded, diag).Run();
}

} // namespace KestrelPlatform
