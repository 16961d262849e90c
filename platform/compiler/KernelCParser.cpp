#include "platform/compiler/KernelCParser.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace KestrelPlatform
{
namespace
{

const int s_nDeepest = 200; ///< brackets and operators in each other

/// From the loosest to the tightest.
const std::vector<std::vector<std::string>> s_vLevels = {{"|"},        {"^"},      {"&"},
                                                         {"<<", ">>"}, {"+", "-"}, {"*", "/", "%"}};

const char* const s_Qualifiers[] = {"const", "restrict", "volatile", "__restrict"};
const char* const s_Spaces[] = {"global", "__global", "constant", "__constant"};
const char* const s_Statements[] = {"if", "for", "while", "do", "switch", "goto", "{"};
const char* const s_Assignments[] = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="};

template <size_t N>
bool IsOneOf(const SCToken& token, const char* const (&words)[N])
{
    return std::any_of(std::begin(words), std::end(words), [&](const char* pWord) { return token.Is(pWord); });
}

uint32_t FloatBits(float f)
{
    uint32_t n = 0;
    std::memcpy(&n, &f, sizeof n);
    return n;
}

} // namespace

bool CKernelCParser::Accept(std::string_view text)
{
    const bool bThere = Token().Is(text);
    m_nNext += bThere ? 1 : 0;
    return bThere;
}

bool CKernelCParser::FailHere(const std::string& strMessage)
{
    return FailAt(Token(), strMessage, m_diag);
}

bool CKernelCParser::Expect(std::string_view text)
{
    return Accept(text) || FailHere("expected '" + std::string(text) + "'");
}

bool CKernelCParser::TakeName(std::string& strName)
{
    if (Token().eKind != SCToken::Word || AtType() || IsOneOf(Token(), s_Qualifiers) || IsOneOf(Token(), s_Spaces))
    {
        return FailHere("expected a name");
    }
    strName = Token().strText;
    ++m_nNext;
    return true;
}

bool CKernelCParser::AtType() const
{
    static const char* const s_Types[] = {"float", "int", "uint", "unsigned", "size_t"};
    return IsOneOf(Token(), s_Types);
}

/// A size is a uint here: no dispatch has more work-items in a dimension.
bool CKernelCParser::TakeType(ECType& eType)
{
    if (!AtType())
    {
        return FailHere("expected one of the types float, int, uint (of OpenCL C this compiler knows kernels of "
                        "straight-line code over them)");
    }
    eType = Token().Is("float") ? ECType::Float : (Token().Is("int") ? ECType::Int : ECType::Uint);
    const bool bUnsigned = Token().Is("unsigned");
    ++m_nNext;
    if (bUnsigned)
    {
        Accept("int");
    }
    return true;
}

bool CKernelCParser::TakeKernel(CKernelCEmitter& kernel)
{
    m_pKernel = &kernel;
    if (!Accept("__kernel") && !Accept("kernel"))
    {
        return FailHere("expected '__kernel'");
    }
    return Expect("void") && TakeName(kernel.m_strName) && Expect("(") && TakeParameters() && Expect("{") && TakeBody();
}

bool CKernelCParser::TakeParameters()
{
    if (Accept(")"))
    {
        return true;
    }
    if (Token().Is("void") && m_vTokens[m_nNext + 1].Is(")"))
    {
        m_nNext += 2;
        return true;
    }
    do
    {
        if (!TakeParameter())
        {
            return false;
        }
    } while (Accept(","));
    return Expect(")");
}

bool CKernelCParser::TakeParameter()
{
    SCVariable variable;
    bool bSpace = false;
    bool bConst = false;
    const auto skip = [&]
    {
        for (; IsOneOf(Token(), s_Qualifiers) || IsOneOf(Token(), s_Spaces); ++m_nNext)
        {
            bSpace = bSpace || IsOneOf(Token(), s_Spaces);
            bConst = bConst || Token().Is("const") || Token().Is("constant") || Token().Is("__constant");
        }
    };
    skip();
    if (!TakeType(variable.eType))
    {
        return false;
    }
    skip();
    variable.bPointer = Accept("*");
    variable.bConst = bConst;
    skip();
    if (variable.bPointer != bSpace)
    {
        return FailHere(bSpace ? "expected '*'" : "expected a pointer to global or constant memory");
    }
    const SCToken name = Token();
    std::string strName;
    return TakeName(strName) && (m_pKernel->AddParameter(strName, variable) ||
                                 FailAt(name, "the name '" + strName + "' stands twice", m_diag));
}

bool CKernelCParser::TakeBody()
{
    while (!Accept("}"))
    {
        if (!TakeStatement())
        {
            return false;
        }
    }
    return true;
}

bool CKernelCParser::TakeStatement()
{
    if (Accept(";"))
    {
        return true;
    }
    if (Accept("return"))
    {
        return Expect(";") && (Token().Is("}") || FailHere("expected '}' behind 'return'"));
    }
    if (AtType() || Token().Is("const"))
    {
        return TakeDeclaration();
    }
    if (IsOneOf(Token(), s_Statements))
    {
        return FailHere("the statement '" + Token().strText + "' isn't known here: only straight-line code is");
    }
    return TakeAssignment() && Expect(";");
}

bool CKernelCParser::TakeDeclaration()
{
    Accept("const");
    ECType eType = ECType::Int;
    if (!TakeType(eType))
    {
        return false;
    }
    do
    {
        const SCToken name = Token();
        std::string strName;
        SCValue value;
        if (!TakeName(strName))
        {
            return false;
        }
        const bool bValue = Accept("=");
        if (bValue && !TakeExpression(value))
        {
            return false;
        }
        if (!m_pKernel->AddVariable(strName, eType))
        {
            return FailAt(name, "the name '" + strName + "' stands twice", m_diag);
        }
        if (bValue)
        {
            m_pKernel->Store({*m_pKernel->Find(strName), std::string()}, value);
        }
    } while (Accept(","));
    return Expect(";");
}

bool CKernelCParser::TakeAssignment()
{
    SCPlace place;
    if (!TakePlace(place))
    {
        return false;
    }
    if (!place.strAddress.empty() && place.variable.bConst)
    {
        return FailHere("what the pointer points to is constant");
    }
    const SCToken assignment = Token();
    const bool bStep = assignment.Is("++") || assignment.Is("--");
    if (!bStep && !IsOneOf(assignment, s_Assignments))
    {
        return FailHere("expected an assignment");
    }
    ++m_nNext;
    SCValue value = m_pKernel->Constant(ECType::Int, 1);
    if (!bStep && !TakeExpression(value))
    {
        return false;
    }
    if (!assignment.Is("="))
    {
        SCValue old = m_pKernel->Load(place);
        if (!m_pKernel->Binary(assignment.strText.substr(0, assignment.strText.size() - 1), old, value))
        {
            return FailAt(assignment, "'" + assignment.strText + "' isn't for floats", m_diag);
        }
        value = old;
    }
    m_pKernel->Store(place, value);
    return true;
}

bool CKernelCParser::TakePlace(SCPlace& place)
{
    const SCToken name = Token();
    std::string strName;
    if (!TakeName(strName))
    {
        return false;
    }
    const SCVariable* const pVariable = m_pKernel->Find(strName);
    if (!pVariable)
    {
        return FailAt(name, "'" + strName + "' isn't declared", m_diag);
    }
    place.variable = *pVariable;
    place.strAddress.clear();
    if (!place.variable.bPointer)
    {
        return true;
    }
    SCValue index;
    const SCToken bracket = Token();
    if (!Expect("[") || !TakeExpression(index) || !Expect("]"))
    {
        return false;
    }
    if (index.eType == ECType::Float)
    {
        return FailAt(bracket, "an index isn't a float", m_diag);
    }
    place = m_pKernel->Element(place.variable, index);
    return true;
}

bool CKernelCParser::TakeExpression(SCValue& value, int nLowest)
{
    if (nLowest == static_cast<int>(s_vLevels.size()))
    {
        return TakeUnary(value);
    }
    if (!TakeExpression(value, nLowest + 1))
    {
        return false;
    }
    const std::vector<std::string>& vOperators = s_vLevels[static_cast<size_t>(nLowest)];
    while (Token().eKind == SCToken::Mark &&
           std::find(vOperators.begin(), vOperators.end(), Token().strText) != vOperators.end())
    {
        const SCToken mark = Token();
        ++m_nNext;
        SCValue right;
        if (!TakeExpression(right, nLowest + 1))
        {
            return false;
        }
        if (!m_pKernel->Binary(mark.strText, value, right))
        {
            return FailAt(mark, "'" + mark.strText + "' isn't for floats", m_diag);
        }
    }
    return true;
}

bool CKernelCParser::TakeUnary(SCValue& value)
{
    if (m_nDepth == s_nDeepest)
    {
        return FailHere("the expression is nested too deeply");
    }
    ++m_nDepth;
    const SCToken mark = Token();
    bool bDone = false;
    if (Accept("-") || Accept("+") || Accept("~"))
    {
        bDone = TakeUnary(value) &&
                (m_pKernel->Unary(mark.strText[0], value) || FailAt(mark, "'~' isn't for floats", m_diag));
    }
    else
    {
        bDone = TakeOperand(value);
    }
    --m_nDepth;
    return bDone;
}

bool CKernelCParser::TakeOperand(SCValue& value)
{
    if (Token().eKind == SCToken::Number)
    {
        return TakeNumber(value);
    }
    if (Accept("("))
    {
        ECType eType = ECType::Int;
        if (!AtType())
        {
            return TakeExpression(value) && Expect(")");
        }
        if (!TakeType(eType) || !Expect(")") || !TakeUnary(value))
        {
            return false;
        }
        value = m_pKernel->Convert(value, eType);
        return true;
    }
    if (Token().eKind == SCToken::Word && m_vTokens[m_nNext + 1].Is("("))
    {
        return TakeCall(value);
    }
    SCPlace place;
    if (!TakePlace(place))
    {
        return false;
    }
    value = m_pKernel->Load(place);
    return true;
}

/// A whole number, hexadecimal or octal too, with u if it is a uint; or a float, with f or without.
bool CKernelCParser::TakeNumber(SCValue& value)
{
    const std::string& strText = Token().strText;
    const bool bHexadecimal = strText.size() > 1 && (strText[1] == 'x' || strText[1] == 'X');
    const bool bFloat = !bHexadecimal && strText.find_first_of(".eEfF") != std::string::npos;
    char* pEnd = nullptr;
    if (bFloat)
    {
        const float fValue = std::strtof(strText.c_str(), &pEnd);
        pEnd += *pEnd == 'f' || *pEnd == 'F' ? 1 : 0;
        value = m_pKernel->Constant(ECType::Float, FloatBits(fValue));
    }
    else
    {
        const unsigned long long nValue = std::strtoull(strText.c_str(), &pEnd, 0);
        const bool bUnsigned = *pEnd == 'u' || *pEnd == 'U' || nValue > 0x7FFFFFFF;
        pEnd += *pEnd == 'u' || *pEnd == 'U' ? 1 : 0;
        if (nValue > 0xFFFFFFFFull)
        {
            return FailHere("the number doesn't fit 32 bits");
        }
        value = m_pKernel->Constant(bUnsigned ? ECType::Uint : ECType::Int, static_cast<uint32_t>(nValue));
    }
    if (*pEnd != '\0')
    {
        return FailHere("'" + strText + "' isn't a number");
    }
    ++m_nNext;
    return true;
}

bool CKernelCParser::TakeCall(SCValue& value)
{
    const SCToken name = Token();
    m_nNext += 2;
    const std::string& strDimension = Token().strText;
    if (strDimension.size() != 1 || strDimension[0] < '0' || strDimension[0] > '2')
    {
        return FailHere("expected a dimension: 0, 1 or 2");
    }
    if (!m_pKernel->WorkItem(name.strText, static_cast<uint32_t>(strDimension[0] - '0'), value))
    {
        return FailAt(name, "the function '" + name.strText + "' isn't known here", m_diag);
    }
    ++m_nNext;
    return Expect(")");
}

} // namespace KestrelPlatform
