#include "tools/session/debug/ExpressionParser.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

const char* const s_Aggregates[] = {"any", "all", "count"};

} // namespace

// Longer operators come before those that they begin with.
const CExpressionParser::SOperator CExpressionParser::s_Operators[] = {
    {"||", ENode::Or, 1},     {"&&", ENode::And, 2},       {"<<", ENode::ShiftLeft, 8}, {">>", ENode::ShiftRight, 8},
    {"==", ENode::Equal, 6},  {"!=", ENode::NotEqual, 6},  {"<=", ENode::LessEqual, 7}, {">=", ENode::GreaterEqual, 7},
    {"<", ENode::Less, 7},    {">", ENode::Greater, 7},    {"|", ENode::BitOr, 3},      {"^", ENode::BitXor, 4},
    {"&", ENode::BitAnd, 5},  {"+", ENode::Add, 9},        {"-", ENode::Subtract, 9},   {"*", ENode::Multiply, 10},
    {"/", ENode::Divide, 10}, {"%", ENode::Remainder, 10},
};

std::vector<SExpressionNode> CExpressionParser::Parse()
{
    const Node nRoot = ParseChoice();
    TakeValue(nRoot);
    SkipBlanks();
    if (Peek() == '=')
    {
        m_nBlame = m_nPos;
        Refuse("values can't be set: each stop is computed anew from the launch");
    }
    if (m_nPos != m_strText.size())
    {
        Fail("an operator or the end");
    }
    return std::move(m_vNodes);
}

void CExpressionParser::Fail(const std::string& strExpected) const
{
    throw CCommandError("in \"" + m_strText + "\", column " + std::to_string(m_nPos + 1) + ": expected " + strExpected);
}

std::string CExpressionParser::Explain(const std::string& strWhy) const
{
    return "in \"" + m_strText + "\", column " + std::to_string(m_nBlame + 1) + ": " + strWhy;
}

bool CExpressionParser::Take(const char* pszText)
{
    SkipBlanks();
    const std::string strText = pszText;
    if (m_strText.compare(m_nPos, strText.size(), strText) != 0)
    {
        return false;
    }
    m_nPos += strText.size();
    return true;
}

std::string CExpressionParser::TakeWord()
{
    const size_t nStart = m_nPos;
    while (std::isalnum(static_cast<unsigned char>(Peek())) || Peek() == '_')
    {
        ++m_nPos;
    }
    return m_strText.substr(nStart, m_nPos - nStart);
}

const CExpressionParser::SOperator* CExpressionParser::TakeOperator(int nLevel)
{
    SkipBlanks();
    for (const SOperator& entry : s_Operators)
    {
        if (m_strText.compare(m_nPos, std::string(entry.pszText).size(), entry.pszText) != 0)
        {
            continue;
        }
        if (entry.nLevel < nLevel || (m_bInAggregate && m_nDepth == m_nAggregateDepth && IsBetweenAggregates(entry)))
        {
            return nullptr;
        }
        m_nBlame = m_nPos;
        m_nPos += std::string(entry.pszText).size();
        return &entry;
    }
    return nullptr;
}

bool CExpressionParser::IsBetweenAggregates(const SOperator& entry) const
{
    if (entry.eNode != ENode::And && entry.eNode != ENode::Or)
    {
        return false;
    }
    const size_t nWord = m_strText.find_first_not_of(" \t!", m_nPos + 2);
    return std::any_of(std::begin(s_Aggregates), std::end(s_Aggregates),
                       [&](const char* pszName)
                       {
                           const size_t nLength = std::string(pszName).size();
                           const bool bHere =
                               nWord != std::string::npos && m_strText.compare(nWord, nLength, pszName) == 0;
                           const char cNext =
                               bHere && nWord + nLength < m_strText.size() ? m_strText[nWord + nLength] : ' ';
                           return bHere && !std::isalnum(static_cast<unsigned char>(cNext)) && cNext != '_';
                       });
}

CExpressionParser::Node CExpressionParser::ParseChoice()
{
    const Node nCondition = ParseBinary(1);
    SkipBlanks();
    const size_t nAt = m_nPos;
    if (!Take("?"))
    {
        return nCondition;
    }
    const CNesting nesting(*this);
    const Node nTrue = ParseChoice();
    if (!Take(":"))
    {
        Fail("\":\"");
    }
    const Node nFalse = ParseChoice();
    m_nBlame = nAt;
    return MakeChoice(nCondition, nTrue, nFalse);
}

CExpressionParser::Node CExpressionParser::ParseBinary(int nLevel)
{
    Node nLeft = ParseUnary();
    while (const SOperator* pOperator = TakeOperator(nLevel))
    {
        const size_t nAt = m_nBlame;
        const Node nRight = ParseBinary(pOperator->nLevel + 1);
        m_nBlame = nAt;
        nLeft = MakeBinary(pOperator->eNode, nLeft, nRight);
    }
    return nLeft;
}

CExpressionParser::Node CExpressionParser::ParseUnary()
{
    static const struct
    {
        char cOperator;
        ENode eNode;
    } s_Unary[] = {{'-', ENode::Negate}, {'!', ENode::Not}, {'~', ENode::Complement}};
    const CNesting nesting(*this);
    SkipBlanks();
    const size_t nAt = m_nPos;
    for (const auto& entry : s_Unary)
    {
        if (Peek() == entry.cOperator)
        {
            ++m_nPos;
            const Node nChild = ParseUnary();
            m_nBlame = nAt;
            return MakeUnary(entry.eNode, nChild);
        }
    }
    const char cOperator = Peek();
    if (cOperator == '*' || cOperator == '&')
    {
        ++m_nPos;
        const Node nChild = ParseUnary();
        m_nBlame = nAt;
        return cOperator == '*' ? MakeDereference(nChild) : MakeAddress(nChild);
    }
    if (Take("+"))
    {
        const Node nChild = ParseUnary();
        m_nBlame = nAt;
        return MakePlus(nChild);
    }
    if (const SSourceType* pType = TakeTypeInBrackets())
    {
        return ParseCast(*pType, nAt);
    }
    return ParseSuffixes(ParsePrimary());
}

CExpressionParser::Node CExpressionParser::ParseSuffixes(Node nNode)
{
    for (;;)
    {
        SkipBlanks();
        const size_t nAt = m_nPos;
        const bool bArrow = Take("->");
        if (bArrow || Take("."))
        {
            SkipBlanks();
            const std::string strName = TakeWord();
            m_nBlame = nAt;
            nNode = MakeMember(bArrow ? MakeDereference(nNode) : nNode, strName);
        }
        else if (Take("["))
        {
            const Node nIndex = ParseChoice();
            CloseIndex();
            m_nBlame = nAt;
            nNode = MakeIndex(nNode, nIndex);
        }
        else
        {
            return nNode;
        }
    }
}

CExpressionParser::Node CExpressionParser::ParsePrimary()
{
    SkipBlanks();
    m_nBlame = m_nPos;
    if (Take("("))
    {
        const Node nNode = ParseChoice();
        Close();
        return nNode;
    }
    if (std::isdigit(static_cast<unsigned char>(Peek())) || Peek() == '.')
    {
        return ParseNumber();
    }
    if (Peek() == '\'')
    {
        return ParseCharacter();
    }
    if (Take("$"))
    {
        return ParseItem();
    }
    const size_t nStart = m_nPos;
    const std::string strWord = TakeWord();
    if (const std::optional<Node> nNode = ParseKeyword(strWord))
    {
        return *nNode;
    }
    if (const std::optional<Node> nNode = ParseName(strWord, nStart))
    {
        return *nNode;
    }
    SkipBlanks();
    if (Peek() == '(')
    {
        return ParseCall(strWord, nStart);
    }
    m_nPos = nStart;
    return ParseComponent();
}

void CExpressionParser::CloseIndex()
{
    if (!Take("]"))
    {
        Fail("\"]\"");
    }
}

void CExpressionParser::Close()
{
    if (!Take(")"))
    {
        Fail("\")\"");
    }
}

void SettleType(std::vector<SExpressionNode>& vNodes, size_t nNode, bool bFloat)
{
    std::vector<size_t> vOpen = {nNode};
    while (!vOpen.empty())
    {
        SExpressionNode& node = vNodes[vOpen.back()];
        vOpen.pop_back();
        if (node.pType != nullptr)
        {
            continue;
        }
        node.pType = bFloat ? &g_RegisterFloat : &g_RegisterInt;
        if (node.eNode == ENode::Component)
        {
            node.eRead = bFloat ? ERead::Float : ERead::Int;
        }
        vOpen.insert(vOpen.end(), node.vChildren.begin(), node.vChildren.end());
    }
}

std::vector<SExpressionNode> ParseExpression(const std::string& strText, IValueSource* pNames, CTypeStore& types)
{
    return CExpressionParser(strText, pNames, types).Parse();
}

const SSourceType* ParseTypeName(const std::string& strText, IValueSource* pNames, CTypeStore& types)
{
    return CExpressionParser(strText, pNames, types).ParseTypeAlone();
}

} // namespace KestrelTool
