#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/ExpressionNode.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace KestrelTool
{

const char* const g_ItemNames[] = {"item", "x", "y", "z", "gx", "gy", "gz", "lx", "ly", "lz", "active"};
const size_t g_nItemNames = sizeof(g_ItemNames) / sizeof(g_ItemNames[0]);

namespace
{

typedef std::unique_ptr<SExpressionNode> Node;

struct SOperator
{
    const char* pszText;
    ENode eNode;
    int nLevel; ///< binds closer when higher
};

// Longer spellings stand in front of their beginnings.
const SOperator s_Operators[] = {
    {"||", ENode::Or, 1},     {"&&", ENode::And, 2},       {"<<", ENode::ShiftLeft, 8}, {">>", ENode::ShiftRight, 8},
    {"==", ENode::Equal, 6},  {"!=", ENode::NotEqual, 6},  {"<=", ENode::LessEqual, 7}, {">=", ENode::GreaterEqual, 7},
    {"<", ENode::Less, 7},    {">", ENode::Greater, 7},    {"|", ENode::BitOr, 3},      {"^", ENode::BitXor, 4},
    {"&", ENode::BitAnd, 5},  {"+", ENode::Add, 9},        {"-", ENode::Subtract, 9},   {"*", ENode::Multiply, 10},
    {"/", ENode::Divide, 10}, {"%", ENode::Remainder, 10},
};

struct SCast
{
    const char* pszName;
    ERead eRead;
    EValue eValue;
    size_t nWords;
};

const SCast s_Casts[] = {{"int", ERead::Int, EValue::Int, 1},
                         {"uint", ERead::Unsigned, EValue::Int, 1},
                         {"float", ERead::Float, EValue::Float, 1},
                         {"long", ERead::Long, EValue::Int, 2},
                         {"double", ERead::Double, EValue::Float, 2}};

bool IsComparison(ENode eNode)
{
    return eNode >= ENode::Less && eNode <= ENode::NotEqual;
}

bool IsBitwise(ENode eNode)
{
    return (eNode >= ENode::ShiftLeft && eNode <= ENode::BitXor) || eNode == ENode::Complement;
}

class CExpressionParser
{
public:
    explicit CExpressionParser(const std::string& strText) : m_strText(strText) {}

    Node Parse()
    {
        Node pRoot = ParseBinary(1);
        SkipBlanks();
        if (m_nPos != m_strText.size())
        {
            Fail("an operator or the end");
        }
        return pRoot;
    }

private:
    [[noreturn]] void Fail(const std::string& strExpected) const
    {
        throw CCommandError("in \"" + m_strText + "\", column " + std::to_string(m_nPos + 1) + ": expected " +
                            strExpected);
    }

    void SkipBlanks()
    {
        while (m_nPos < m_strText.size() && std::isspace(static_cast<unsigned char>(m_strText[m_nPos])))
        {
            ++m_nPos;
        }
    }

    char Peek() const { return m_nPos < m_strText.size() ? m_strText[m_nPos] : '\0'; }

    bool Take(const char* pszText)
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

    std::string TakeWord()
    {
        const size_t nStart = m_nPos;
        while (std::isalnum(static_cast<unsigned char>(Peek())) || Peek() == '_')
        {
            ++m_nPos;
        }
        return m_strText.substr(nStart, m_nPos - nStart);
    }

    const SOperator* TakeOperator(int nLevel)
    {
        SkipBlanks();
        for (const SOperator& entry : s_Operators)
        {
            if (m_strText.compare(m_nPos, std::string(entry.pszText).size(), entry.pszText) != 0)
            {
                continue;
            }
            if (entry.nLevel < nLevel)
            {
                return nullptr;
            }
            m_nPos += std::string(entry.pszText).size();
            return &entry;
        }
        return nullptr;
    }

    Node ParseBinary(int nLevel)
    {
        Node pLeft = ParseUnary();
        while (const SOperator* pOperator = TakeOperator(nLevel))
        {
            Node pNode = std::make_unique<SExpressionNode>();
            pNode->eNode = pOperator->eNode;
            pNode->vChildren.push_back(std::move(pLeft));
            pNode->vChildren.push_back(ParseBinary(pOperator->nLevel + 1));
            Type(*pNode);
            pLeft = std::move(pNode);
        }
        return pLeft;
    }

    Node MakeUnary(ENode eNode, Node pChild)
    {
        Node pNode = std::make_unique<SExpressionNode>();
        pNode->eNode = eNode;
        pNode->vChildren.push_back(std::move(pChild));
        Type(*pNode);
        return pNode;
    }

    Node ParseUnary()
    {
        // Everything that nests comes through here.
        const int nMaxDepth = 200;
        if (m_nDepth >= nMaxDepth)
        {
            Fail("less that is nested");
        }
        ++m_nDepth;
        Node pNode = ParseUnaryHere();
        --m_nDepth;
        return pNode;
    }

    Node ParseUnaryHere()
    {
        if (Take("-"))
        {
            return MakeUnary(ENode::Negate, ParseUnary());
        }
        if (Take("!"))
        {
            return MakeUnary(ENode::Not, ParseUnary());
        }
        if (Take("~"))
        {
            return MakeUnary(ENode::Complement, ParseUnary());
        }
        return ParsePrimary();
    }

    Node ParsePrimary()
    {
        SkipBlanks();
        if (Take("("))
        {
            Node pNode = ParseBinary(1);
            Close();
            return pNode;
        }
        if (std::isdigit(static_cast<unsigned char>(Peek())) || Peek() == '.')
        {
            return ParseNumber();
        }
        if (Take("$"))
        {
            return ParseItem();
        }
        const size_t nStart = m_nPos;
        const std::string strWord = TakeWord();
        if (strWord == "nan" || strWord == "inf")
        {
            return MakeFloat(strWord == "nan" ? std::numeric_limits<double>::quiet_NaN()
                                              : std::numeric_limits<double>::infinity());
        }
        if (strWord == "any" || strWord == "all" || strWord == "count")
        {
            return ParseAggregate(strWord);
        }
        SkipBlanks();
        for (const SCast& cast : s_Casts)
        {
            if (strWord == cast.pszName && Peek() == '(')
            {
                return ParseCast(cast);
            }
        }
        m_nPos = nStart;
        return ParseComponent();
    }

    void Close()
    {
        if (!Take(")"))
        {
            Fail("\")\"");
        }
    }

    Node MakeFloat(double fValue)
    {
        Node pNode = std::make_unique<SExpressionNode>();
        pNode->eValue = EValue::Float;
        pNode->fNumber = fValue;
        return pNode;
    }

    Node ParseNumber()
    {
        const char* pszStart = m_strText.c_str() + m_nPos;
        char* pszEndOfInt = nullptr;
        char* pszEnd = nullptr;
        const unsigned long long nValue = std::strtoull(pszStart, &pszEndOfInt, 0);
        const double fValue = std::strtod(pszStart, &pszEnd);
        if (pszEnd > pszEndOfInt)
        {
            m_nPos += pszEnd - pszStart + (*pszEnd == 'f' ? 1 : 0);
            return MakeFloat(fValue);
        }
        m_nPos += pszEndOfInt - pszStart;
        Node pNode = std::make_unique<SExpressionNode>();
        pNode->eValue = EValue::Int;
        pNode->nNumber = static_cast<int64_t>(nValue);
        return pNode;
    }

    Node ParseItem()
    {
        const std::string strName = TakeWord();
        for (unsigned int i = 0; i < g_nItemNames; ++i)
        {
            if (strName == g_ItemNames[i])
            {
                Node pNode = std::make_unique<SExpressionNode>();
                pNode->eNode = ENode::Item;
                pNode->nItem = i;
                return pNode;
            }
        }
        Fail("$item, $x, $y, $z, $gx, $gy, $gz, $lx, $ly, $lz or $active");
    }

    Node ParseAggregate(const std::string& strName)
    {
        const bool bAllItems = Take("/a");
        if (m_bInAggregate)
        {
            Fail("no any, all or count inside another one");
        }
        m_bInAggregate = true;
        Node pNode = std::make_unique<SExpressionNode>();
        pNode->eNode = strName == "any" ? ENode::Any : strName == "all" ? ENode::All : ENode::Count;
        pNode->bAllItems = bAllItems;
        if (strName == "count")
        {
            if (!Take("("))
            {
                Fail("\"(\" behind count");
            }
            pNode->vChildren.push_back(ParseBinary(1));
            Close();
        }
        else
        {
            pNode->vChildren.push_back(ParseBinary(1));
        }
        SettleType(*pNode->vChildren.front(), EValue::Int);
        m_bInAggregate = false;
        return pNode;
    }

    Node ParseCast(const SCast& cast)
    {
        Take("(");
        m_nPairsAllowed += cast.nWords == 2 ? 1 : 0;
        Node pChild = ParseBinary(1);
        m_nPairsAllowed -= cast.nWords == 2 ? 1 : 0;
        Close();
        if (pChild->eNode != ENode::Component || pChild->bReadGiven)
        {
            Node pNode = MakeUnary(ENode::Convert, std::move(pChild));
            SettleType(*pNode->vChildren.front(), EValue::Int);
            pNode->eValue = cast.eValue;
            return pNode;
        }
        if (pChild->operand.vComponents.size() != cast.nWords)
        {
            Fail(cast.nWords == 2 ? "two components, as in double(r2.xy)" : "one component, as in int(r2.x)");
        }
        pChild->eRead = cast.eRead;
        pChild->eValue = cast.eValue;
        pChild->bReadGiven = true;
        return pChild;
    }

    Node ParseComponent()
    {
        const size_t nStart = m_nPos;
        TakeWord();
        if (m_nPos == nStart)
        {
            Fail("a register, a number or \"(\"");
        }
        while (Peek() == '[' || Peek() == ']' || (m_nPos > nStart && std::isalnum(static_cast<unsigned char>(Peek()))))
        {
            ++m_nPos;
        }
        if (Peek() == '.')
        {
            ++m_nPos;
            TakeWord();
        }
        Node pNode = std::make_unique<SExpressionNode>();
        pNode->eNode = ENode::Component;
        pNode->eValue = EValue::Open;
        pNode->operand = ReadOperand(m_strText.substr(nStart, m_nPos - nStart));
        const size_t nWords = pNode->operand.vComponents.size();
        const bool bAlone = nStart == m_strText.find_first_not_of(" \t") && m_nPos == m_strText.size();
        if (!bAlone && nWords != 1 && !(nWords == 2 && m_nPairsAllowed != 0))
        {
            Fail("a single component of " + pNode->operand.strRegister + ", as in " + pNode->operand.strRegister +
                 ".x");
        }
        return pNode;
    }

    /// What a node gives, from what its children give.
    static void Type(SExpressionNode& node)
    {
        bool bFloat = false;
        bool bOpen = true;
        for (const Node& pChild : node.vChildren)
        {
            bFloat = bFloat || pChild->eValue == EValue::Float;
            bOpen = bOpen && pChild->eValue == EValue::Open;
        }
        const bool bIntOnly =
            IsBitwise(node.eNode) || node.eNode == ENode::And || node.eNode == ENode::Or || node.eNode == ENode::Not;
        if (bOpen && !bIntOnly && !IsComparison(node.eNode))
        {
            node.eValue = EValue::Open;
            return;
        }
        const EValue eOperands = bFloat && !IsBitwise(node.eNode) ? EValue::Float : EValue::Int;
        for (const Node& pChild : node.vChildren)
        {
            SettleType(*pChild, eOperands);
        }
        node.eValue = bIntOnly || IsComparison(node.eNode) ? EValue::Int : eOperands;
    }

    const std::string& m_strText;
    size_t m_nPos = 0;
    int m_nPairsAllowed = 0;
    bool m_bInAggregate = false;
    int m_nDepth = 0;
};

} // namespace

void SettleType(SExpressionNode& node, EValue eValue)
{
    if (node.eValue != EValue::Open)
    {
        return;
    }
    node.eValue = eValue;
    if (node.eNode == ENode::Component)
    {
        node.eRead = eValue == EValue::Float ? ERead::Float : ERead::Int;
    }
    for (const Node& pChild : node.vChildren)
    {
        SettleType(*pChild, eValue);
    }
}

std::unique_ptr<SExpressionNode> ParseExpression(const std::string& strText)
{
    return CExpressionParser(strText).Parse();
}

SOperand ReadOperand(const std::string& strText)
{
    SOperand operand;
    const size_t nClose = strText.rfind(']');
    const size_t nDot = strText.find('.', nClose == std::string::npos ? 0 : nClose);
    operand.strRegister = strText.substr(0, nDot);
    const size_t nDigit = operand.strRegister.find_first_of("0123456789");
    const bool bStartsWell = !operand.strRegister.empty() && std::isalpha(operand.strRegister[0]) != 0;
    if (!bStartsWell)
    {
        throw CCommandError("\"" + strText + "\" is no register");
    }
    if (nDigit == std::string::npos)
    {
        operand.strRegister += '0'; // the id registers are written without their number
    }
    if (nDot == std::string::npos)
    {
        operand.vComponents = {0, 1, 2, 3};
        return operand;
    }
    for (const char c : strText.substr(nDot + 1))
    {
        const size_t nComponent = std::string("xyzw").find(c);
        if (nComponent == std::string::npos)
        {
            throw CCommandError("\"" + strText + "\": components are x, y, z and w");
        }
        operand.vComponents.push_back(static_cast<unsigned int>(nComponent));
    }
    if (operand.vComponents.empty() || operand.vComponents.size() > 4)
    {
        throw CCommandError("\"" + strText + "\": one to four components");
    }
    return operand;
}

} // namespace KestrelTool
