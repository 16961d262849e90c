#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/ExpressionNode.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace KestrelTool
{

const char* const g_ItemNames[] = {"item", "x", "y", "z", "gx", "gy", "gz", "lx", "ly", "lz", "active"};
const size_t g_nItemNames = sizeof(g_ItemNames) / sizeof(g_ItemNames[0]);

namespace
{

typedef size_t Node; ///< its place in the list

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

const char* const s_Aggregates[] = {"any", "all", "count"};

bool IsBitwise(ENode eNode)
{
    return (eNode >= ENode::ShiftLeft && eNode <= ENode::BitXor) || eNode == ENode::Complement;
}

class CExpressionParser
{
public:
    CExpressionParser(const std::string& strText, IValueSource* pNames) : m_strText(strText), m_pNames(pNames) {}

    std::vector<SExpressionNode> Parse()
    {
        ParseBinary(1);
        SkipBlanks();
        if (m_nPos != m_strText.size())
        {
            Fail("an operator or the end");
        }
        return std::move(m_vNodes);
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
            if (entry.nLevel < nLevel ||
                (m_bInAggregate && m_nDepth == m_nAggregateDepth && IsBetweenAggregates(entry)))
            {
                return nullptr;
            }
            m_nPos += std::string(entry.pszText).size();
            return &entry;
        }
        return nullptr;
    }

    /// "any A && any B": the first any ends in front of an operator behind which the next one begins.
    bool IsBetweenAggregates(const SOperator& entry) const
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

    Node Append(SExpressionNode node)
    {
        node.nBegin = node.nChildren != 0 ? m_vNodes[node.children[0]].nBegin : m_vNodes.size();
        m_vNodes.push_back(std::move(node));
        return m_vNodes.size() - 1;
    }

    Node ParseBinary(int nLevel)
    {
        Node nLeft = ParseUnary();
        while (const SOperator* pOperator = TakeOperator(nLevel))
        {
            SExpressionNode node;
            node.eNode = pOperator->eNode;
            node.nChildren = 2;
            node.children[0] = nLeft;
            node.children[1] = ParseBinary(pOperator->nLevel + 1);
            Type(node);
            nLeft = Append(std::move(node));
        }
        return nLeft;
    }

    Node MakeUnary(ENode eNode, Node nChild)
    {
        SExpressionNode node;
        node.eNode = eNode;
        node.nChildren = 1;
        node.children[0] = nChild;
        Type(node);
        return Append(std::move(node));
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
        const Node nNode = ParseUnaryHere();
        --m_nDepth;
        return nNode;
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
            const Node nNode = ParseBinary(1);
            Close();
            return nNode;
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
        if (const std::optional<Node> nVariable = ParseVariable())
        {
            return *nVariable;
        }
        TakeWord();
        SkipBlanks();
        if (const std::optional<SElements> elements = FindElements(strWord))
        {
            return ParseElement(*elements);
        }
        m_nPos = nStart;
        return ParseComponent();
    }

    /// A variable of the source with members and elements by number behind it. It goes before an argument of the same
    /// name, whose value it had when the kernel began.
    std::optional<Node> ParseVariable()
    {
        const size_t nStart = m_nPos;
        size_t nEnd = nStart;
        TakeWord();
        while (m_nPos > nEnd)
        {
            nEnd = m_nPos;
            TakePart();
        }
        m_nPos = nStart;
        const std::string strPath = m_strText.substr(nStart, nEnd - nStart);
        const bool bElement = nEnd < m_strText.size() && m_strText[nEnd] == '[';
        const std::optional<SVariableWords> words =
            m_pNames != nullptr && !strPath.empty() && !bElement &&
                    !IsSpelledAsRegister(strPath.substr(0, strPath.find_first_of(".[")))
                ? m_pNames->FindVariable(strPath, false)
                : std::nullopt;
        if (!words)
        {
            return std::nullopt;
        }
        m_nPos = nEnd;
        SExpressionNode node;
        node.eNode = ENode::Component;
        node.strVariable = strPath;
        node.nBytes = words->nSize;
        node.bReadGiven = true;
        const bool bFloat = words->eKind == SElementType::Float;
        node.eValue = bFloat ? EValue::Float : EValue::Int;
        node.eRead = words->nSize == 8                        ? bFloat ? ERead::Double : ERead::Long
                     : bFloat                                 ? ERead::Float
                     : words->eKind == SElementType::Unsigned ? ERead::Unsigned
                                                              : ERead::Int;
        return Append(std::move(node));
    }

    /// ".member" or "[2]"; nothing of anything else.
    void TakePart()
    {
        const size_t nStart = m_nPos;
        const char cFirst = Peek();
        if (cFirst != '.' && cFirst != '[')
        {
            return;
        }
        ++m_nPos;
        const std::string strWord = TakeWord();
        const bool bNumber = strWord.find_first_not_of("0123456789") == std::string::npos;
        const bool bGood = !strWord.empty() && (cFirst == '.' || (bNumber && Peek() == ']'));
        m_nPos = bGood ? m_nPos + (cFirst == '[' ? 1 : 0) : nStart;
    }

    std::optional<SElements> FindElements(const std::string& strName) const
    {
        const bool bAsk = m_pNames != nullptr && !strName.empty() && !IsSpelledAsRegister(strName);
        return bAsk ? m_pNames->FindElements(strName) : std::nullopt;
    }

    /// Behind the name of something in memory.
    Node ParseElement(const SElements& elements)
    {
        SExpressionNode node;
        node.eNode = ENode::Element;
        node.eValue = elements.pType->eKind == SElementType::Float ? EValue::Float : EValue::Int;
        node.elements = elements;
        node.nChildren = 1;
        if (Take("["))
        {
            node.children[0] = ParseBinary(1);
            if (!Take("]"))
            {
                Fail("\"]\"");
            }
            SettleType(m_vNodes, node.children[0], EValue::Int);
        }
        else if (elements.bAlone)
        {
            node.children[0] = Append(SExpressionNode());
        }
        else
        {
            Fail("which element, as in " + elements.strName + "[0]");
        }
        return Append(std::move(node));
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
        SExpressionNode node;
        node.eValue = EValue::Float;
        node.fNumber = fValue;
        return Append(std::move(node));
    }

    Node ParseNumber()
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
            m_nPos += pszEnd - pszStart + (*pszEnd == 'f' ? 1 : 0);
            return MakeFloat(fValue);
        }
        if (bTooLarge)
        {
            Fail("a number of 64 bits");
        }
        m_nPos += pszEndOfInt - pszStart;
        SExpressionNode node;
        node.nNumber = static_cast<int64_t>(nValue);
        return Append(std::move(node));
    }

    Node ParseItem()
    {
        const std::string strName = TakeWord();
        for (unsigned int i = 0; i < g_nItemNames; ++i)
        {
            if (strName == g_ItemNames[i])
            {
                SExpressionNode node;
                node.eNode = ENode::Item;
                node.nItem = i;
                return Append(std::move(node));
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
        m_nAggregateDepth = m_nDepth;
        SExpressionNode node;
        node.eNode = strName == "any" ? ENode::Any : strName == "all" ? ENode::All : ENode::Count;
        node.bAllItems = bAllItems;
        node.nChildren = 1;
        if (strName == "count")
        {
            if (!Take("("))
            {
                Fail("\"(\" behind count");
            }
            m_nAggregateDepth = 0; // it ends at its bracket
            node.children[0] = ParseBinary(1);
            Close();
        }
        else
        {
            node.children[0] = ParseBinary(1);
        }
        SettleType(m_vNodes, node.children[0], EValue::Int);
        m_bInAggregate = false;
        return Append(std::move(node));
    }

    Node ParseCast(const SCast& cast)
    {
        Take("(");
        m_nPairsAllowed += cast.nWords == 2 ? 1 : 0;
        const Node nChild = ParseBinary(1);
        m_nPairsAllowed -= cast.nWords == 2 ? 1 : 0;
        Close();
        if (m_vNodes[nChild].eNode != ENode::Component || m_vNodes[nChild].bReadGiven)
        {
            const Node nNode = MakeUnary(ENode::Convert, nChild);
            SettleType(m_vNodes, nChild, EValue::Int);
            m_vNodes[nNode].eValue = cast.eValue;
            return nNode;
        }
        SExpressionNode& child = m_vNodes[nChild];
        if (child.operand.vComponents.size() != cast.nWords)
        {
            Fail(cast.nWords == 2 ? "two components, as in double(r2.xy)" : "one component, as in int(r2.x)");
        }
        child.eRead = cast.eRead;
        child.eValue = cast.eValue;
        child.bReadGiven = true;
        return nChild;
    }

    Node ParseComponent()
    {
        const size_t nStart = m_nPos;
        TakeWord();
        if (m_nPos == nStart)
        {
            Fail("a register, a number or \"(\"");
        }
        const std::string strWord = m_strText.substr(nStart, m_nPos - nStart);
        if (!IsSpelledAsRegister(strWord) && strWord[0] != 'v') // as ids begin
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
        node.eValue = EValue::Open;
        node.operand = ReadOperand(m_strText.substr(nStart, m_nPos - nStart));
        const size_t nWords = node.operand.vComponents.size();
        const bool bAlone = nStart == m_strText.find_first_not_of(" \t") && m_nPos == m_strText.size();
        if (!bAlone && nWords != 1 && !(nWords == 2 && m_nPairsAllowed != 0))
        {
            Fail("a single component of " + node.operand.strRegister + ", as in " + node.operand.strRegister + ".x");
        }
        return Append(std::move(node));
    }

    /// What a node gives, from what its children give.
    void Type(SExpressionNode& node)
    {
        bool bFloat = false;
        bool bOpen = true;
        for (unsigned int i = 0; i < node.nChildren; ++i)
        {
            bFloat = bFloat || m_vNodes[node.children[i]].eValue == EValue::Float;
            bOpen = bOpen && m_vNodes[node.children[i]].eValue == EValue::Open;
        }
        const bool bIntOnly =
            IsBitwise(node.eNode) || node.eNode == ENode::And || node.eNode == ENode::Or || node.eNode == ENode::Not;
        if (bOpen && !bIntOnly && !IsComparison(node.eNode))
        {
            node.eValue = EValue::Open;
            return;
        }
        const EValue eOperands = bFloat && !IsBitwise(node.eNode) ? EValue::Float : EValue::Int;
        for (unsigned int i = 0; i < node.nChildren; ++i)
        {
            SettleType(m_vNodes, node.children[i], eOperands);
        }
        node.eValue = bIntOnly || IsComparison(node.eNode) ? EValue::Int : eOperands;
    }

    const std::string& m_strText;
    IValueSource* m_pNames;
    std::vector<SExpressionNode> m_vNodes;
    size_t m_nPos = 0;
    int m_nPairsAllowed = 0;
    bool m_bInAggregate = false;
    int m_nAggregateDepth = 0; ///< of what nests where the aggregate began
    int m_nDepth = 0;
};

} // namespace

void SettleType(std::vector<SExpressionNode>& vNodes, size_t nNode, EValue eValue)
{
    std::vector<size_t> vOpen = {nNode};
    while (!vOpen.empty())
    {
        SExpressionNode& node = vNodes[vOpen.back()];
        vOpen.pop_back();
        if (node.eValue != EValue::Open)
        {
            continue;
        }
        node.eValue = eValue;
        if (node.eNode == ENode::Component)
        {
            node.eRead = eValue == EValue::Float ? ERead::Float : ERead::Int;
        }
        vOpen.insert(vOpen.end(), node.children, node.children + node.nChildren);
    }
}

std::vector<SExpressionNode> ParseExpression(const std::string& strText, IValueSource* pNames)
{
    return CExpressionParser(strText, pNames).Parse();
}

} // namespace KestrelTool
