// Types in expressions, and operations written as calls.

#include "tools/session/debug/ExpressionParser.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

/// How a type reads register components in its parentheses: float(r3.x).
struct SRegisterRead
{
    const char* pszName;
    ERead eRead;
    bool bFloat;
    size_t nWords;
};

const SRegisterRead s_RegisterReads[] = {{"int", ERead::Int, false, 1},
                                         {"uint", ERead::Unsigned, false, 1},
                                         {"float", ERead::Float, true, 1},
                                         {"long", ERead::Long, false, 2},
                                         {"double", ERead::Double, true, 2}};

} // namespace

std::string CExpressionParser::TakeTypeWords()
{
    static const char* const s_Passed[] = {"const",   "volatile",  "restrict",   "struct",     "union",
                                           "enum",    "__private", "__global",   "__constant", "__local",
                                           "private", "global",    "__restrict", "constant",   "local"};
    static const char* const s_Parts[] = {"unsigned", "signed", "char", "short", "int", "long"};
    const auto isOneOf = [](const auto& words, const std::string& strWord)
    { return std::find(std::begin(words), std::end(words), strWord) != std::end(words); };
    std::string strName;
    for (;;)
    {
        SkipBlanks();
        const size_t nStart = m_nPos;
        const std::string strWord = TakeWord();
        NoteSpace(strWord);
        if (isOneOf(s_Passed, strWord))
        {
            continue;
        }
        const bool bPart = isOneOf(s_Parts, strWord);
        const bool bGoesOn = !strName.empty() && bPart && isOneOf(s_Parts, strName.substr(0, strName.find(' ')));
        if (strWord.empty() || (!strName.empty() && !bGoesOn))
        {
            m_nPos = nStart;
            return strName;
        }
        strName += (strName.empty() ? "" : " ") + strWord;
    }
}

void CExpressionParser::NoteSpace(const std::string& strWord)
{
    static const struct
    {
        const char* pszName;
        SSourceType::ESpace eSpace;
    } s_Spaces[] = {{"global", SSourceType::GlobalSpace},
                    {"constant", SSourceType::ConstantSpace},
                    {"local", SSourceType::LocalSpace}};
    for (const auto& space : s_Spaces)
    {
        const bool bSpace = strWord == space.pszName || strWord == std::string("__") + space.pszName;
        m_eSpace = bSpace ? space.eSpace : m_eSpace;
    }
}

const SSourceType* CExpressionParser::FindType(const std::string& strName)
{
    const bool bHidden = m_pNames != nullptr && m_pNames->FindVariable(strName, true);
    const SSourceType* const pOwn = bHidden || strName.empty() ? nullptr : m_Types.Find(strName);
    return pOwn != nullptr || bHidden || strName.empty() || m_pNames == nullptr ? pOwn : m_pNames->FindType(strName);
}

const SSourceType* CExpressionParser::TakeType()
{
    const size_t nStart = m_nPos;
    const size_t nMaxStars = 16;
    m_eSpace = SSourceType::PrivateSpace;
    const SSourceType* pType = FindType(TakeTypeWords());
    for (size_t nStars = 0; pType != nullptr && Take("*"); ++nStars)
    {
        if (nStars == nMaxStars)
        {
            Fail("fewer stars");
        }
        pType = &m_Types.MakePointer(*pType, m_eSpace);
        m_eSpace = SSourceType::PrivateSpace;
        TakeTypeWords();
    }
    m_nPos = pType == nullptr ? nStart : m_nPos;
    return pType;
}

const SSourceType* CExpressionParser::TakeTypeInBrackets()
{
    const size_t nStart = m_nPos;
    const SSourceType* pType = nullptr;
    if (Take("("))
    {
        SkipBlanks();
        pType = std::isalpha(static_cast<unsigned char>(Peek())) || Peek() == '_' ? TakeType() : nullptr;
        pType = pType != nullptr && Take(")") ? pType : nullptr;
    }
    m_nPos = pType == nullptr ? nStart : m_nPos;
    return pType;
}

const SSourceType* CExpressionParser::ParseTypeAlone()
{
    const SSourceType* const pType = TakeType();
    SkipBlanks();
    return m_nPos == m_strText.size() ? pType : nullptr;
}

CExpressionParser::Node CExpressionParser::ParseCast(const SSourceType& type, size_t nAt)
{
    SkipBlanks();
    if (IsVector(type) && Take("("))
    {
        const std::vector<Node> vParts = ParseArguments();
        m_nBlame = nAt;
        return ParseSuffixes(MakeVector(type, vParts)); // unlike a cast, a vector literal takes suffixes itself
    }
    const Node nChild = ParseUnary();
    m_nBlame = nAt;
    return Convert(nChild, type);
}

CExpressionParser::Node CExpressionParser::Convert(Node nChild, const SSourceType& type)
{
    const auto pRead = std::find_if(std::begin(s_RegisterReads), std::end(s_RegisterReads),
                                    [&](const SRegisterRead& read) { return type.strName == read.pszName; });
    SExpressionNode& child = m_vNodes[nChild];
    if (child.eNode != ENode::Component || child.bReadGiven || pRead == std::end(s_RegisterReads))
    {
        return MakeConversion(nChild, type);
    }
    if (child.operand.vComponents.size() != pRead->nWords)
    {
        Fail(pRead->nWords == 2 ? "two components, as in double(r2.xy)" : "one component, as in int(r2.x)");
    }
    child.eRead = pRead->eRead;
    child.pType = pRead->bFloat ? &g_RegisterFloat : &g_RegisterInt;
    child.bReadGiven = true;
    return nChild;
}

CExpressionParser::Node CExpressionParser::ParseSize()
{
    const size_t nAt = m_nPos;
    if (const SSourceType* pType = TakeTypeInBrackets())
    {
        return MakeConstant(GetIntegerType(false, 8), pType->nSize);
    }
    const size_t nFirst = m_vNodes.size();
    const Node nChild = ParseUnary();
    m_nBlame = nAt;
    if (TypeOf(nChild) == nullptr)
    {
        Refuse("registers have no size of their own");
    }
    const size_t nSize = TypeOf(nChild)->nSize;
    m_vNodes.resize(nFirst); // it isn't evaluated
    return MakeConstant(GetIntegerType(false, 8), nSize);
}

std::vector<CExpressionParser::Node> CExpressionParser::ParseArguments()
{
    std::vector<Node> vArguments;
    if (Take(")"))
    {
        return vArguments;
    }
    do
    {
        vArguments.push_back(ParseChoice());
    } while (Take(","));
    Close();
    return vArguments;
}

CExpressionParser::Node CExpressionParser::ParseCall(const std::string& strName, size_t nStart)
{
    const auto startsWith = [&](const char* pszStart) { return strName.rfind(pszStart, 0) == 0; };
    const SBuiltIn* const pBuiltIn = FindBuiltIn(strName);
    const bool bReread = startsWith("as_");
    const std::string strType = bReread ? strName.substr(3) : startsWith("convert_") ? strName.substr(8) : strName;
    const SSourceType* const pType = pBuiltIn != nullptr ? nullptr : FindType(strType);
    if (pBuiltIn == nullptr && pType == nullptr)
    {
        m_nBlame = nStart;
        Refuse("there is no function " + strName + " that expressions can call");
    }
    Take("(");
    const bool bPair = strName == "long" || strName == "double";
    m_nPairsAllowed += bPair ? 1 : 0;
    const std::vector<Node> vArguments = ParseArguments();
    m_nPairsAllowed -= bPair ? 1 : 0;
    m_nBlame = nStart;
    if (pBuiltIn != nullptr)
    {
        return MakeCall(*pBuiltIn, vArguments);
    }
    if (IsVector(*pType) && strType == strName)
    {
        return MakeVector(*pType, vArguments);
    }
    if (vArguments.size() != 1)
    {
        Refuse(strName + " takes 1 argument");
    }
    return bReread && TypeOf(vArguments[0]) != nullptr ? MakeReread(vArguments[0], *pType)
                                                       : Convert(vArguments[0], *pType);
}

} // namespace KestrelTool
