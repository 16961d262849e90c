// The leaves of expressions: numbers, names, registers and work-items.

#include "tools/session/debug/ExpressionParser.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace KestrelTool
{

const char* const g_ItemNames[] = {"item", "x", "y", "z", "gx", "gy", "gz", "lx", "ly", "lz", "active"};
const size_t g_nItemNames = sizeof(g_ItemNames) / sizeof(g_ItemNames[0]);

std::optional<CExpressionParser::Node> CExpressionParser::ParseKeyword(const std::string& strWord)
{
    if (strWord == "nan" || strWord == "inf")
    {
        const Node nNode = MakeDouble(strWord == "nan" ? std::numeric_limits<double>::quiet_NaN()
                                                       : std::numeric_limits<double>::infinity());
        m_vNodes[nNode].bNaN = strWord == "nan";
        return nNode;
    }
    // A variable may be called count; the aggregate is followed by a parenthesis.
    const bool bVariable = strWord == "count" && !IsBracketNext() && m_pNames != nullptr &&
                           m_pNames->FindVariable(strWord, false).has_value();
    if (strWord == "any" || strWord == "all" || (strWord == "count" && !bVariable))
    {
        return ParseAggregate(strWord);
    }
    if (strWord == "true" || strWord == "false")
    {
        return MakeConstant(GetIntegerType(true, 4), strWord == "true" ? 1 : 0);
    }
    return strWord == "sizeof" ? std::optional<Node>(ParseSize()) : std::nullopt;
}

/// Whether a parenthesis follows, with or without "/a" before it.
bool CExpressionParser::IsBracketNext() const
{
    size_t nPos = m_strText.find_first_not_of(" \t", m_nPos);
    if (nPos != std::string::npos && m_strText.compare(nPos, 2, "/a") == 0)
    {
        nPos = m_strText.find_first_not_of(" \t", nPos + 2);
    }
    return nPos != std::string::npos && m_strText[nPos] == '(';
}

std::optional<CExpressionParser::Node> CExpressionParser::ParseName(const std::string& strWord, size_t nStart)
{
    if (m_pNames == nullptr || strWord.empty())
    {
        return std::nullopt;
    }
    m_nBlame = nStart;
    SkipBlanks();
    const bool bRegister = IsSpelledAsRegister(strWord);
    const bool bIndexed = Peek() == '[';
    const std::optional<SSourceVariable> here = m_pNames->FindVariable(strWord, true);
    const std::optional<SElements> elements =
        bRegister || (here && !(bIndexed && here->vPieces.empty())) ? std::nullopt : m_pNames->FindElements(strWord);
    if (here && !elements)
    {
        return MakeVariable(*here);
    }
    if (bRegister)
    {
        return std::nullopt;
    }
    const std::optional<SSourceVariable> anywhere =
        elements && (bIndexed || m_pNames->IsAtEntry()) ? std::nullopt : m_pNames->FindVariable(strWord, false);
    if (anywhere)
    {
        return MakeVariable(*anywhere);
    }
    return elements ? std::optional<Node>(ParseElement(*elements)) : std::nullopt;
}

CExpressionParser::Node CExpressionParser::ParseElement(const SElements& elements)
{
    SExpressionNode node;
    node.eNode = ENode::Element;
    node.pType = elements.pType->eKind == SElementType::Float ? &g_RegisterFloat : &g_RegisterInt;
    node.elements = elements;
    if (Take("["))
    {
        node.vChildren = {ParseChoice()};
        CloseIndex();
        TakeValue(node.vChildren[0]);
        if (TypeOf(node.vChildren[0]) != nullptr && !IsArithmetic(*TypeOf(node.vChildren[0])))
        {
            Refuse("an element's number is an integer, not " + TypeOf(node.vChildren[0])->strName);
        }
    }
    else if (elements.bAlone)
    {
        node.vChildren = {MakeConstant(g_RegisterInt, 0)};
    }
    else
    {
        Fail("which element, as in " + elements.strName + "[0]");
    }
    TakeAs(node.vChildren[0], g_RegisterInt);
    return Append(std::move(node));
}

CExpressionParser::Node CExpressionParser::ParseNumber()
{
    const char* pszStart = m_strText.c_str() + m_nPos;
    char* pszEndOfInt = nullptr;
    char* pszEnd = nullptr;
    errno = 0;
    const unsigned long long nValue = std::strtoull(pszStart, &pszEndOfInt, 0);
    const bool bTooLarge = errno == ERANGE;
    const double fValue = std::strtod(pszStart, &pszEnd);
    if (pszEnd == pszStart)
    {
        Fail("a number");
    }
    if (pszEnd > pszEndOfInt)
    {
        if (std::isinf(fValue))
        {
            Fail("a number that a double holds");
        }
        m_nPos += pszEnd - pszStart;
        const bool bSingle = Peek() == 'f' || Peek() == 'F';
        m_nPos += bSingle ? 1 : 0;
        uint32_t nBits;
        const float fSingle = static_cast<float>(fValue);
        std::memcpy(&nBits, &fSingle, sizeof(nBits));
        return bSingle ? MakeConstant(*FindScalarType("float"), nBits) : MakeDouble(fValue);
    }
    if (bTooLarge)
    {
        Fail("a number of 64 bits");
    }
    const bool bDecimal = *pszStart != '0';
    m_nPos += pszEndOfInt - pszStart;
    return MakeConstant(TakeSuffix(nValue, bDecimal), nValue);
}

CExpressionParser::Node CExpressionParser::ParseCharacter()
{
    static const std::string s_strEscapes = "0ntr\\'";
    ++m_nPos;
    char cCharacter = Peek();
    ++m_nPos;
    if (cCharacter == '\\')
    {
        const size_t nEscape = s_strEscapes.find(Peek());
        cCharacter = nEscape < s_strEscapes.size() ? std::string("\0\n\t\r\\'", 6)[nEscape] : '\'';
        m_nPos += nEscape < s_strEscapes.size() ? 1 : 0;
    }
    if (m_nPos > m_strText.size() || Peek() != '\'')
    {
        m_nPos = std::min(m_nPos, m_strText.size());
        Fail("a character between ' and '");
    }
    ++m_nPos;
    return MakeConstant(GetIntegerType(true, 4), static_cast<uint64_t>(static_cast<int64_t>(cCharacter)));
}

const SSourceType& CExpressionParser::TakeSuffix(uint64_t nValue, bool bDecimal)
{
    bool bUnsigned = false;
    bool bLong = false;
    for (char c = Peek(); c == 'u' || c == 'U' || c == 'l' || c == 'L'; c = Peek())
    {
        bUnsigned = bUnsigned || c == 'u' || c == 'U';
        bLong = bLong || c == 'l' || c == 'L';
        ++m_nPos;
    }
    const bool bOneWord = nValue >> 32 == 0;
    if (!bLong && bOneWord && (bUnsigned || !bDecimal || nValue >> 31 == 0))
    {
        return GetIntegerType(!bUnsigned && nValue >> 31 == 0, 4);
    }
    return GetIntegerType(!bUnsigned && nValue >> 63 == 0, 8);
}

CExpressionParser::Node CExpressionParser::ParseItem()
{
    const std::string strName = TakeWord();
    for (unsigned int i = 0; i < g_nItemNames; ++i)
    {
        if (strName == g_ItemNames[i])
        {
            SExpressionNode node;
            node.eNode = ENode::Item;
            node.pType = &g_RegisterInt;
            node.nItem = i;
            return Append(std::move(node));
        }
    }
    if (IsSpelledAsRegister(strName) || strName[0] == 'v')
    {
        m_nPos -= strName.size();
        return ParseComponent();
    }
    Fail("$item, $x, $y, $z, $gx, $gy, $gz, $lx, $ly, $lz or $active");
}

CExpressionParser::Node CExpressionParser::ParseAggregate(const std::string& strName)
{
    const size_t nAt = m_nPos - strName.size();
    const bool bAllItems = Take("/a");
    if (m_bInAggregate)
    {
        Fail("no any, all or count inside another one");
    }
    m_bInAggregate = true;
    m_nAggregateDepth = m_nDepth;
    SExpressionNode node;
    node.eNode = strName == "any" ? ENode::Any : strName == "all" ? ENode::All : ENode::Count;
    node.bAllItems = bAllItems;
    node.pType = &g_RegisterInt;
    if (strName == "count")
    {
        if (!Take("("))
        {
            Fail("\"(\" after count");
        }
        m_nAggregateDepth = 0; // the aggregate ends at its parenthesis
        node.vChildren = {ParseChoice()};
        Close();
    }
    else
    {
        node.vChildren = {ParseBinary(1)};
    }
    m_nBlame = nAt;
    TakeCondition(node.vChildren[0]);
    m_bInAggregate = false;
    return Append(std::move(node));
}

CExpressionParser::Node CExpressionParser::ParseComponent()
{
    const size_t nStart = m_nPos;
    TakeWord();
    if (m_nPos == nStart)
    {
        Fail("a register, a number or \"(\"");
    }
    const std::string strWord = m_strText.substr(nStart, m_nPos - nStart);
    if (!IsSpelledAsRegister(strWord) && strWord[0] != 'v') // names of ids begin with v
    {
        throw CCommandError("there is no " + strWord + " here, be it a variable, an argument or a register");
    }
    if (Peek() == '[')
    {
        ++m_nPos;
        TakeWord();
        m_nPos += Peek() == ']' ? 1 : 0;
    }
    if (Peek() == '.')
    {
        ++m_nPos;
        TakeWord();
    }
    SExpressionNode node;
    node.eNode = ENode::Component;
    node.operand = ReadOperand(m_strText.substr(nStart, m_nPos - nStart));
    const size_t nWords = node.operand.vComponents.size();
    const bool bAlone = nStart == m_strText.find_first_not_of(" \t") && m_nPos == m_strText.size();
    if (!bAlone && nWords != 1 && !(nWords == 2 && m_nPairsAllowed != 0))
    {
        Fail("a single component of " + node.operand.strRegister + ", as in " + node.operand.strRegister + ".x");
    }
    return Append(std::move(node));
}

} // namespace KestrelTool
