#include "tests/platform/opencl_c/generated/KernelMaker.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace KestrelTest
{
namespace
{

struct STypeOfC
{
    const char* pszName;
    bool bFloat;
    bool bSigned;
    unsigned int nBits;
};

const STypeOfC s_types[] = {{"char", false, true, 8},     {"uchar", false, false, 8},  {"short", false, true, 16},
                            {"ushort", false, false, 16}, {"int", false, true, 32},    {"uint", false, false, 32},
                            {"long", false, true, 64},    {"ulong", false, false, 64}, {"float", true, true, 32},
                            {"double", true, true, 64}};
const STypeOfC& s_int = s_types[4];
const STypeOfC& s_uint = s_types[5];

const char* const s_vectorTypes[] = {"int4", "uint2", "short8", "uchar4", "float4", "uint16", "int3", "ulong2"};

struct SVariable
{
    std::string strName;
    const STypeOfC* pType;
    bool bAssignable;
};

std::string LayoutOf(const STypeOfC& type)
{
    return type.bFloat ? (type.nBits == 32 ? "f" : "d") : std::string(type.nBits / 8, 'i');
}

std::string Repeat(const std::string& strText, unsigned int nTimes)
{
    std::string strAll;
    for (unsigned int n = 0; n < nTimes; ++n)
    {
        strAll += strText;
    }
    return strAll;
}

/// A kernel under construction. Its text is written from front to back; declarations of helpers go before it.
class CMaker
{
public:
    /// \param pLayouts  receives the layouts of probed variables; null for no probes
    CMaker(uint64_t nSeed, std::string strName, CLayouts* pLayouts)
        : m_Random(nSeed), m_strName(std::move(strName)), m_pLayouts(pLayouts)
    {
    }

    std::string Make();
    SPlantedKernel MakePlanted(EPlanted ePlanted);

private:
    /// A number from 0 to n - 1.
    unsigned int Pick(unsigned int n) { return static_cast<unsigned int>(m_Random() % n); }
    bool Chance(unsigned int nPercent) { return Pick(100) < nPercent; }
    template <class T, size_t N>
    const T& PickFrom(const T (&items)[N])
    {
        return items[Pick(N)];
    }
    std::string NewName(const char* pszPrefix) { return pszPrefix + std::to_string(m_nNames++); }
    void Line(const std::string& strText)
    {
        m_strText += std::string(4 * m_nIndent, ' ') + std::exchange(m_strProbes, "") + strText + "\n";
    }
    /// A variable that has a value from here to the end of its scope.
    void Probe(const std::string& strName, const std::string& strLayout)
    {
        if (m_pLayouts)
        {
            m_vProbed.push_back(strName);
            (*m_pLayouts)[strName] = strLayout;
        }
    }
    /// The next line probes all variables in scope first.
    void ProbeAll()
    {
        for (const std::string& strName : m_vProbed)
        {
            m_strProbes += "P(" + strName + ") ";
        }
    }
    void Open(const std::string& strText)
    {
        Line(strText);
        Line("{");
        ++m_nIndent;
    }
    void Close()
    {
        --m_nIndent;
        Line("}");
    }

    std::string Constant(const STypeOfC& type);
    std::string Leaf(const STypeOfC& type);
    std::string Integer(unsigned int nDepth);
    std::string Float(unsigned int nDepth, const STypeOfC& type);
    std::string Expression(const STypeOfC& type, unsigned int nDepth);
    std::string Condition(unsigned int nDepth);
    std::string CastTo(const STypeOfC& type, const std::string& strInteger);

    void Trace(const std::string& strWord);
    void Declare();
    void Assign();
    void UseArray();
    void UseStruct();
    void UseVector();
    void CallHelper();
    void UseAtomic();
    void If(unsigned int nDepth);
    void For(unsigned int nDepth);
    void While(unsigned int nDepth);
    void Switch(unsigned int nDepth);
    void Jump();
    void Statement(unsigned int nDepth);
    void Body(unsigned int nDepth, unsigned int nCount);
    void Scope(unsigned int nDepth, unsigned int nCount);
    void Exchange(bool bFirst);
    void Plant();
    void NotePlace(unsigned int& nLine) const
    {
        nLine = static_cast<unsigned int>(std::count(m_strText.begin(), m_strText.end(), '\n'));
    }
    void MakeHelper();
    void MakeTypes();
    void MakeKernelBody();

    std::mt19937_64 m_Random;
    std::string m_strName;
    std::string m_strText;
    std::vector<SVariable> m_vVariables;
    std::vector<std::string> m_vHelpers;
    CLayouts* m_pLayouts;
    std::vector<std::string> m_vProbed; ///< those in scope
    std::string m_strProbes;            ///< to be written before the next line
    unsigned int m_nNames = 0;
    unsigned int m_nIndent = 0;
    unsigned int m_nLoops = 0;
    unsigned int m_nSwitches = 0;
    bool m_bInHelper = false;
    bool m_bHasLabel = false;
    int m_nBudget = 0;
    SPlantedKernel m_Planted;
    unsigned int m_nPlantIn = 0; ///< statements until then; 0 if nothing is to be planted any more
    bool m_bBarrier = false;     ///< a barrier is to be left out
    bool m_bOpen = false;        ///< the last statement was that barrier
};

std::string CMaker::Constant(const STypeOfC& type)
{
    if (type.bFloat)
    {
        static const char* const s_floats[] = {"0.5f", "1.25f", "-3.0f", "100.0f", "0.0f", "-0.125f", "7.5f"};
        return std::string("(") + type.pszName + ")" + PickFrom(s_floats);
    }
    static const char* const s_integers[] = {"0",  "1",   "2",   "3",    "5",     "7",
                                             "31", "100", "255", "1000", "65535", "0x7FFFFFFF"};
    return std::string("(") + type.pszName + ")" + (Chance(25) ? "-" : "") + PickFrom(s_integers);
}

std::string CMaker::Leaf(const STypeOfC& type)
{
    std::vector<const SVariable*> vFitting;
    for (const SVariable& variable : m_vVariables)
    {
        if (variable.pType->bFloat == type.bFloat)
        {
            vFitting.push_back(&variable);
        }
    }
    if (vFitting.empty() || Chance(20))
    {
        return Constant(type);
    }
    return vFitting[Pick(static_cast<unsigned int>(vFitting.size()))]->strName;
}

/// Converts any integer to another type by way of the unsigned type of the same width, which wraps.
std::string CMaker::CastTo(const STypeOfC& type, const std::string& strInteger)
{
    return std::string("(") + type.pszName + ")(" + strInteger + ")";
}

/// An integer expression. Sums and products use unsigned types, since signed ones must not overflow.
std::string CMaker::Integer(unsigned int nDepth)
{
    static const char* const s_wrapping[] = {"+", "-", "*", "&", "|", "^"};
    static const char* const s_unsigned[] = {"uint", "ulong"};
    static const char* const s_signed[] = {"int", "long"};
    if (nDepth == 0)
    {
        return Leaf(s_int);
    }
    const std::string strA = Integer(nDepth - 1), strB = Integer(nDepth - 1);
    switch (Pick(12))
    {
    case 0:
    case 1:
    case 2:
    {
        const std::string strType = std::string("(") + PickFrom(s_unsigned) + ")";
        return "(" + strType + strA + " " + PickFrom(s_wrapping) + " " + strType + strB + ")";
    }
    case 3:
    {
        const bool bLeft = Chance(50);
        const char* const pszType = bLeft || Chance(50) ? PickFrom(s_unsigned) : PickFrom(s_signed);
        return std::string("((") + pszType + ")" + strA + (bLeft ? " << (" : " >> (") + strB + " & 31))";
    }
    case 4:
        return std::string("((") + PickFrom(s_unsigned) + ")" + strA + (Chance(50) ? " / (" : " % (") + strB +
               " | 1u))";
    case 5:
        // Excludes division by zero, and of the smallest number by -1.
        return std::string("((") + PickFrom(s_signed) + ")" + strA + (Chance(50) ? " / (" : " % (") + "((int)" + strB +
               " & 255) + 1))";
    case 6:
        return "(" + Condition(nDepth - 1) + " ? (long)" + strA + " : (long)" + strB + ")";
    case 7:
        return "(int)" + Condition(nDepth - 1);
    case 8:
        return CastTo(s_types[Pick(8)], strA);
    case 9:
        return "(~" + CastTo(s_types[Pick(8)], strA) + ")";
    case 10:
        return m_strName + "_table[(uint)" + strA + " & 7]";
    default:
        return "to_int(" + Float(nDepth - 1, s_types[8 + Pick(2)]) + ")";
    }
}

std::string CMaker::Float(unsigned int nDepth, const STypeOfC& type)
{
    static const char* const s_operators[] = {"+", "-", "*"};
    const std::string strCast = std::string("(") + type.pszName + ")";
    if (nDepth == 0)
    {
        return strCast + Leaf(type);
    }
    switch (Pick(6))
    {
    case 0:
        return strCast + CastTo(s_types[Pick(8)], Integer(nDepth - 1));
    case 1:
        return "(" + Condition(nDepth - 1) + " ? " + Float(nDepth - 1, type) + " : " + Float(nDepth - 1, type) + ")";
    case 2:
        return "(-" + Float(nDepth - 1, type) + ")";
    case 3:
        return "(" + Float(nDepth - 1, type) + " / (" + strCast + "((int)" + Integer(nDepth - 1) + " & 15) + 1))";
    default:
        return "(" + Float(nDepth - 1, type) + " " + PickFrom(s_operators) + " " + Float(nDepth - 1, type) + ")";
    }
}

std::string CMaker::Expression(const STypeOfC& type, unsigned int nDepth)
{
    return type.bFloat ? Float(nDepth, type) : CastTo(type, Integer(nDepth));
}

std::string CMaker::Condition(unsigned int nDepth)
{
    static const char* const s_relations[] = {"<", "<=", ">", ">=", "==", "!="};
    if (nDepth > 0 && Chance(35))
    {
        static const char* const s_logical[] = {" && ", " || "};
        return "(" + Condition(nDepth - 1) + PickFrom(s_logical) + Condition(nDepth - 1) + ")";
    }
    if (Chance(10))
    {
        return "(!" + Leaf(s_int) + ")";
    }
    const STypeOfC& type = PickFrom(s_types);
    return "(" + Expression(type, nDepth / 2) + " " + PickFrom(s_relations) + " " + Expression(type, nDepth / 2) + ")";
}

/// Notes a word where the program passes, so that another path gives another result.
void CMaker::Trace(const std::string& strWord)
{
    Line("hash = hash * 31u + (uint)" + strWord + ";");
}

void CMaker::Declare()
{
    const STypeOfC& type = PickFrom(s_types);
    const std::string strName = NewName("v");
    Line(std::string(type.pszName) + " " + strName + " = " + Expression(type, 2) + ";");
    m_vVariables.push_back({strName, &type, true});
    Probe(strName, LayoutOf(type));
}

void CMaker::Assign()
{
    std::vector<const SVariable*> vTargets;
    for (const SVariable& variable : m_vVariables)
    {
        if (variable.bAssignable)
        {
            vTargets.push_back(&variable);
        }
    }
    if (vTargets.empty())
    {
        Declare();
        return;
    }
    const SVariable& target = *vTargets[Pick(static_cast<unsigned int>(vTargets.size()))];
    if (!target.pType->bFloat && !target.pType->bSigned && Chance(40))
    {
        static const char* const s_operators[] = {"+=", "-=", "*=", "^=", "|=", "&="};
        // A product of two unsigned shorts would be computed as int.
        const bool bNarrow = target.pType->nBits < 32;
        Line(target.strName + " " + s_operators[bNarrow ? Pick(2) : Pick(6)] + " " + Expression(*target.pType, 2) +
             ";");
        return;
    }
    Line(target.strName + " = " + Expression(*target.pType, 3) + ";");
}

void CMaker::UseArray()
{
    const STypeOfC& type = s_types[Pick(10)];
    const std::string strName = NewName("a");
    const unsigned int nSize = 2u << Pick(3);
    const std::string strMask = std::to_string(nSize - 1);
    Line(std::string(type.pszName) + " " + strName + "[" + std::to_string(nSize) + "];");
    const std::string strIndex = NewName("i");
    Open("for (int " + strIndex + " = 0; " + strIndex + " < " + std::to_string(nSize) + "; ++" + strIndex + ")");
    m_vVariables.push_back({strIndex, &s_int, false});
    Line(strName + "[" + strIndex + "] = " + Expression(type, 2) + ";");
    m_vVariables.pop_back();
    Close();
    Probe(strName, Repeat(LayoutOf(type), nSize));
    ProbeAll();
    Line(strName + "[(uint)" + Integer(1) + " & " + strMask + "] = " + Expression(type, 2) + ";");
    const std::string strRead = NewName("v");
    Line(std::string(type.pszName) + " " + strRead + " = " + strName + "[(uint)" + Integer(1) + " & " + strMask + "];");
    m_vVariables.push_back({strRead, &type, true});
    Probe(strRead, LayoutOf(type));
    if (!type.bFloat)
    {
        Line("for (int i = 0; i < " + std::to_string(nSize) + "; ++i)");
        Line("    hash = hash * 33u ^ (uint)" + strName + "[i];");
    }
}

void CMaker::UseStruct()
{
    const std::string strName = NewName("s"), strCopy = NewName("s");
    const std::string strType = "struct " + m_strName + "_t";
    Line(strType + " " + strName + " = {" + Expression(s_types[0], 1) + ", " + Expression(s_int, 2) + ", {" +
         Expression(s_types[2], 1) + ", " + Expression(s_types[2], 1) + ", " + Expression(s_types[2], 1) + "}, " +
         Expression(s_types[8], 1) + ", " + Expression(s_types[7], 2) + "};");
    const std::string strLayout = "i---"
                                  "iiii"
                                  "iiiiii--"
                                  "f----"
                                  "iiiiiiii";
    Probe(strName, strLayout);
    ProbeAll();
    Line(strType + " " + strCopy + " = " + strName + ";");
    Probe(strCopy, strLayout);
    ProbeAll();
    Line(strCopy + ".words[(uint)" + Integer(1) + " % 3u] = " + Expression(s_types[2], 2) + ";");
    Line("change_" + m_strName + "(&" + strCopy + ", " + Expression(s_int, 1) + ");");
    Line(strName + " = " + Condition(1) + " ? " + strCopy + " : mixed_" + m_strName + "(" + strName + ", " + strCopy +
         ");");
    for (const auto& [pszField, pType] : {std::pair<const char*, const STypeOfC*>{".count", &s_int},
                                          {".small", &s_types[0]},
                                          {".words[1]", &s_types[2]},
                                          {".part", &s_types[8]},
                                          {".wide", &s_types[7]}})
    {
        m_vVariables.push_back({strName + pszField, pType, true});
    }
}

void CMaker::UseVector()
{
    const std::string strType = PickFrom(s_vectorTypes);
    const size_t nDigit = strType.find_first_of("0123456789");
    const std::string strElement = strType.substr(0, nDigit);
    const unsigned int nWidth = static_cast<unsigned int>(std::stoul(strType.substr(nDigit)));
    const STypeOfC& element = *std::find_if(std::begin(s_types), std::end(s_types),
                                            [&](const STypeOfC& type) { return strElement == type.pszName; });
    // Signed int and long elements must not overflow. Shorts wrap when they are stored, but vectors have no promoted
    // products.
    const bool bWraps = element.bFloat || !element.bSigned;
    const std::string strA = NewName("w"), strB = NewName("w");
    for (const std::string& strName : {strA, strB})
    {
        std::string strList;
        for (unsigned int i = 0; i < nWidth; ++i)
        {
            strList += (i ? ", " : "") + Expression(element, i < 4 ? 1 : 0);
        }
        Line(strType + " " + strName + " = {" + strList + "};");
        Probe(strName, Repeat(LayoutOf(element), nWidth) + (nWidth == 3 ? std::string(element.nBits / 8, '-') : ""));
        ProbeAll();
    }
    static const char* const s_bitwise[] = {"&", "|", "^"};
    static const char* const s_arithmetic[] = {"+", "-", "*"};
    static const char* const s_swizzles[] = {".yx", ".xy", ".xx", ".yy"};
    Line(strA + " = " + strA + " " + (bWraps ? PickFrom(s_arithmetic) : PickFrom(s_bitwise)) + " " + strB + ";");
    if (!element.bFloat)
    {
        Line(strB + " = (" + strA + " " + PickFrom(s_bitwise) + " ~" + strB + ") >> (" + strElement + ")" +
             std::to_string(Pick(element.nBits)) + ";");
    }
    Line(strA + ".xy = " + strB + PickFrom(s_swizzles) + ";");
    if (nWidth >= 4)
    {
        Line(strB + (Chance(50) ? ".odd = " : ".hi = ") + strA + (Chance(50) ? ".even;" : ".lo;"));
    }
    if (!element.bFloat && nWidth <= 4)
    {
        Line("if (" + strA + ".x " + (Chance(50) ? "<" : "==") + " " + strB + ".y)");
        Line("    " + strA + " = " + strB + ";");
    }
    const char* const components[] = {".x", ".y"};
    for (const char* pszComponent : components)
    {
        m_vVariables.push_back({strA + pszComponent, &element, true});
        m_vVariables.push_back({strB + pszComponent, &element, true});
    }
    if (!element.bFloat)
    {
        Trace(strB + ".s" + "0123456789abcdef"[Pick(nWidth)]);
    }
}

void CMaker::CallHelper()
{
    if (m_vHelpers.empty())
    {
        Assign();
        return;
    }
    const std::string strName = NewName("v");
    const std::string strHelper = m_vHelpers[Pick(static_cast<unsigned int>(m_vHelpers.size()))];
    Line("uint " + strName + "_box[2] = {" + Expression(s_uint, 1) + ", 3u};");
    Probe(strName + "_box", LayoutOf(s_uint) + LayoutOf(s_uint));
    ProbeAll();
    Line("int " + strName + " = " + strHelper + "(" + Expression(s_int, 2) + ", " + Expression(s_types[8], 1) + ", " +
         strName + "_box, in);");
    m_vVariables.push_back({strName, &s_int, true});
    m_vVariables.push_back({strName + "_box[1]", &s_uint, true});
    Probe(strName, LayoutOf(s_int));
}

void CMaker::UseAtomic()
{
    static const char* const s_functions[] = {"atomic_add", "atomic_xor", "atomic_add", "atomic_sub"};
    // Words that are summed aren't also used for flipping bits, so that the order doesn't matter.
    const std::string strFunction = PickFrom(s_functions);
    const unsigned int nFirst = strFunction == "atomic_xor" ? 4 : 0;
    Line(strFunction + "(&sums[" + std::to_string(nFirst) + " + ((uint)" + Integer(1) + " & 3)], " +
         Expression(s_uint, 2) + ");");
}

void CMaker::Scope(unsigned int nDepth, unsigned int nCount)
{
    const size_t nVariables = m_vVariables.size(), nProbed = m_vProbed.size();
    Body(nDepth, nCount);
    m_vVariables.resize(nVariables);
    m_vProbed.resize(nProbed);
}

void CMaker::If(unsigned int nDepth)
{
    Open("if " + Condition(2));
    Scope(nDepth - 1, 1 + Pick(3));
    Close();
    if (Chance(30))
    {
        Open("else if " + Condition(2));
        Scope(nDepth - 1, 1 + Pick(2));
        Close();
    }
    if (Chance(50))
    {
        Open("else");
        Scope(nDepth - 1, 1 + Pick(3));
        Close();
    }
}

void CMaker::For(unsigned int nDepth)
{
    const std::string strIndex = NewName("i");
    std::string strEnd = std::to_string(1 + Pick(5));
    if (Chance(50))
    {
        strEnd = "(int)((uint)" + Leaf(s_int) + " & 3u) + 1";
    }
    const std::string strMore = Chance(30) ? " && " + Condition(1) : "";
    // The bound is evaluated once, so that assignments in the body can't make the loop endless.
    const std::string strBound = NewName("n");
    Open("for (int " + strIndex + " = 0, " + strBound + " = " + strEnd + "; " + strIndex + " < " + strBound + strMore +
         "; ++" + strIndex + ")");
    const size_t nVariables = m_vVariables.size(), nProbed = m_vProbed.size();
    m_vVariables.push_back({strIndex, &s_int, false});
    Probe(strIndex, LayoutOf(s_int));
    Probe(strBound, LayoutOf(s_int));
    const unsigned int nSwitches = std::exchange(m_nSwitches, 0);
    ++m_nLoops;
    Body(nDepth - 1, 1 + Pick(4));
    --m_nLoops;
    m_nSwitches = nSwitches;
    m_vVariables.resize(nVariables);
    m_vProbed.resize(nProbed);
    Close();
}

void CMaker::While(unsigned int nDepth)
{
    const std::string strCount = NewName("n");
    const bool bDo = Chance(40);
    Line("int " + strCount + " = " + std::to_string(1 + Pick(6)) + ";");
    Probe(strCount, LayoutOf(s_int));
    const std::string strCondition = Chance(60) ? Condition(1) + " && " : "";
    const std::string strHead = "(" + strCondition + strCount + "-- > 0)";
    const bool bEndless = !bDo && Chance(25);
    Open(bDo ? "do" : bEndless ? "for (;;)" : "while " + strHead);
    if (bEndless)
    {
        Line("if (" + strCount + "-- <= 0)");
        Line("    break;");
    }
    const unsigned int nSwitches = std::exchange(m_nSwitches, 0);
    ++m_nLoops;
    Scope(nDepth - 1, 1 + Pick(4));
    --m_nLoops;
    m_nSwitches = nSwitches;
    --m_nIndent;
    Line(bDo ? "} while (" + strCount + "-- > 0" + (strCondition.empty() ? "" : " && " + Condition(1)) + ");" : "}");
}

void CMaker::Switch(unsigned int nDepth)
{
    const unsigned int nCases = 1 + Pick(5);
    const bool bSparse = Chance(30);
    Open("switch ((" + std::string(Chance(20) ? "long" : "int") + ")((uint)" + Integer(1) + " & 7u)" +
         (bSparse ? " * 1000 - 3000" : "") + ")");
    ++m_nSwitches;
    std::vector<unsigned int> vValues = {0, 1, 2, 3, 4, 5, 6, 7};
    std::shuffle(vValues.begin(), vValues.end(), m_Random);
    const unsigned int nDefault = Chance(60) ? Pick(nCases + 1) : 99;
    for (unsigned int n = 0; n <= nCases; ++n)
    {
        if (n == nDefault)
        {
            Line("default:");
        }
        else if (n < nCases)
        {
            const int nValue = bSparse ? static_cast<int>(vValues[n]) * 1000 - 3000 : static_cast<int>(vValues[n]);
            Line("case " + std::to_string(nValue) + ":");
        }
        else
        {
            continue;
        }
        if (Chance(15))
        {
            Line(";");
            continue;
        }
        Line("{");
        ++m_nIndent;
        Scope(nDepth - 1, 1 + Pick(2));
        Close();
        if (Chance(65))
        {
            Line("break;");
        }
    }
    --m_nSwitches;
    Close();
}

/// Leaves a loop, switch or function, usually under a condition.
void CMaker::Jump()
{
    std::vector<std::string> vJumps;
    if (m_nLoops > 0)
    {
        vJumps.insert(vJumps.end(), {"continue;", "break;"});
    }
    if (m_nSwitches > 0)
    {
        vJumps.push_back("break;");
    }
    if (m_bInHelper)
    {
        vJumps.push_back("return (int)hash;");
    }
    else if (m_bHasLabel)
    {
        vJumps.push_back("goto done;");
    }
    else
    {
        vJumps.push_back("{ out[0] = hash; return; }");
    }
    const std::string strJump = vJumps[Pick(static_cast<unsigned int>(vJumps.size()))];
    Line("if " + Condition(2));
    if (Chance(30))
    {
        Line("{");
        ++m_nIndent;
        Trace(std::to_string(Pick(1000)));
        Line(strJump);
        Close();
    }
    else
    {
        Line("    " + strJump);
    }
}

void CMaker::Statement(unsigned int nDepth)
{
    --m_nBudget;
    if (!m_bInHelper && m_nPlantIn > 0 && --m_nPlantIn == 0)
    {
        Plant();
    }
    const unsigned int nKind = Pick(nDepth == 0 || m_nBudget < 0 ? 10 : 20);
    ProbeAll();
    switch (nKind)
    {
    case 0:
    case 1:
        Declare();
        break;
    case 2:
    case 3:
    case 4:
        Assign();
        break;
    case 5:
        Trace(Integer(1));
        break;
    case 6:
        Chance(50) ? UseVector() : UseArray();
        break;
    case 7:
        m_bInHelper ? Assign() : Chance(50) ? UseStruct() : UseAtomic();
        break;
    case 8:
        CallHelper();
        break;
    case 9:
        Jump();
        break;
    case 10:
    case 11:
    case 12:
    case 13:
        If(nDepth);
        break;
    case 14:
    case 15:
        For(nDepth);
        break;
    case 16:
    case 17:
        While(nDepth);
        break;
    default:
        Switch(nDepth);
        break;
    }
}

void CMaker::Body(unsigned int nDepth, unsigned int nCount)
{
    for (unsigned int n = 0; n < nCount; ++n)
    {
        Statement(nDepth);
    }
}

/// Passes words between work-items through local memory, at a place that all of a group reach.
/// \param bFirst  another exchange follows
void CMaker::Exchange(bool bFirst)
{
    const std::string strName = NewName("v");
    const char* const pszBarrier = "barrier(CLK_LOCAL_MEM_FENCE);";
    const char* const pszDropped = "PLANTED(, barrier(CLK_LOCAL_MEM_FENCE));";
    const bool bBefore = m_bBarrier && (!bFirst || Chance(50));
    const bool bAfter = m_bBarrier && !bBefore;
    ProbeAll();
    if (bBefore || m_bOpen)
    {
        NotePlace(m_Planted.nOther);
    }
    Line("tile[lid] = " + Expression(s_uint, 2) + ";");
    Line(bBefore ? pszDropped : pszBarrier);
    const unsigned int nNext = 1 + Pick(g_nGroupSize - 1);
    if (m_bBarrier)
    {
        NotePlace(m_Planted.nLine);
        m_Planted.nNext = nNext;
    }
    Line("uint " + strName + " = tile[((uint)lid + " + std::to_string(nNext) + "u) & " +
         std::to_string(g_nGroupSize - 1) + "u];");
    Line(bAfter ? pszDropped : pszBarrier);
    m_bOpen = bAfter;
    m_bBarrier = false;
    m_vVariables.push_back({strName, &s_uint, true});
    Probe(strName, LayoutOf(s_uint));
}

/// Neither form changes what the program does elsewhere, so it is known which work-items come here.
void CMaker::Plant()
{
    const std::string strName = NewName("p");
    switch (m_Planted.ePlanted)
    {
    case PLANTED_INDEX:
        NotePlace(m_Planted.nLine);
        Line("P(gid) out[6] = (uint)in[gid + PLANTED(" + std::to_string(g_nInputs - g_nItems / 2) + ", 0)];");
        break;
    case PLANTED_SHARED:
        NotePlace(m_Planted.nLine);
        Line("P(gid) sums[" + std::to_string(g_nSums + 4) + " + PLANTED(gid / 2, gid)] = hash;");
        break;
    case PLANTED_ATOMIC:
    {
        const std::string strWord = "sums[" + std::to_string(g_nSums) + " + (lid & 3)]";
        NotePlace(m_Planted.nLine);
        Line("P(gid) PLANTED(" + strWord + " += b, atomic_add(&" + strWord + ", b));");
        break;
    }
    default:
        Line("uint " + strName + " PLANTED(, = 3u);");
        Line("if (lid & 1)");
        Line("    " + strName + " = b;");
        NotePlace(m_Planted.nLine);
        Line(Chance(50) ? "P(gid) out[7] = " + strName + ";" : "P(gid) if (" + strName + " == 5u) out[7] = 1u;");
        break;
    }
    m_Planted.nOther = m_Planted.nLine;
}

void CMaker::MakeTypes()
{
    std::string strTable;
    for (int n = 0; n < 8; ++n)
    {
        strTable += (n ? ", " : "") + std::to_string(static_cast<int32_t>(m_Random()) / 2);
    }
    Line("__constant int " + m_strName + "_table[8] = {" + strTable + "};");
    const std::string strType = "struct " + m_strName + "_t";
    Line(strType);
    Line("{\n    char small;\n    int count;\n    short words[3];\n    float part;\n    ulong wide;\n};");
    Line("void change_" + m_strName + "(" + strType + "* s, int by)");
    Line("{\n    s->wide ^= (ulong)by;\n    if (by & 1)\n        s->count = (int)((uint)s->count + 5u);\n    "
         "s->words[2] = "
         "(short)by;\n}");
    Line(strType + " mixed_" + m_strName + "(" + strType + " a, " + strType + " b)");
    Line("{\n    a.small = b.small;\n    a.words[0] = (short)(b.words[2] ^ 3);\n    return a;\n}");
}

void CMaker::MakeHelper()
{
    const std::string strHelper = m_strName + "_" + NewName("f");
    Open("int " + strHelper + "(int p, float q, uint* box, __global const int* in)");
    m_vVariables = {{"p", &s_int, true}, {"q", &s_types[8], true}, {"box[0]", &s_uint, true}, {"in[3]", &s_int, false}};
    Line("uint hash = (uint)p;");
    m_vProbed.clear();
    Probe("p", LayoutOf(s_int));
    Probe("q", LayoutOf(s_types[8]));
    Probe("hash", LayoutOf(s_uint));
    m_bInHelper = true;
    m_nBudget = 10;
    Body(2, 2 + Pick(4));
    ProbeAll();
    Line("box[1] += hash;");
    Line("return " + Expression(s_int, 2) + ";");
    m_bInHelper = false;
    Close();
    m_vHelpers.push_back(strHelper);
}

void CMaker::MakeKernelBody()
{
    Open("__kernel void " + m_strName +
         "(__global const int* in, __global uint* all, __global uint* sums, int n, float f, uint2 v)");
    Line("__local uint tile[" + std::to_string(g_nGroupSize) + "];");
    Line("const int gid = (int)get_global_id(0);");
    Line("const int lid = (int)get_local_id(0);");
    Line("__global uint* out = all + gid * " + std::to_string(g_nOutputs) + ";");
    Line("uint hash = 17u;");
    Line("int a = in[gid];");
    Line("uint b = (uint)in[(gid * 7) & 63];");
    Line("float c = (float)(in[(gid + 9) & 63] & 1023) * 0.25f;");
    m_vVariables = {{"a", &s_int, true},
                    {"b", &s_uint, true},
                    {"c", &s_types[8], true},
                    {"gid", &s_int, false},
                    {"lid", &s_int, false},
                    {"n", &s_int, true},
                    {"f", &s_types[8], true},
                    {"v.x", &s_uint, true},
                    {"v.y", &s_uint, true},
                    {"in[gid]", &s_int, false},
                    {"in[((uint)n + (uint)lid) & 63u]", &s_int, false}};
    m_vProbed.clear();
    for (const char* pszName : {"gid", "lid", "hash", "a", "b", "n"})
    {
        Probe(pszName, LayoutOf(s_int));
    }
    Probe("c", "f");
    Probe("f", "f");
    Probe("v", LayoutOf(s_uint) + LayoutOf(s_uint));
    m_nBudget = 22;
    m_bBarrier = m_Planted.ePlanted == PLANTED_BARRIER;
    for (unsigned int nExchanges = m_bBarrier ? 1 + Pick(2) : Pick(3); nExchanges > 0; --nExchanges)
    {
        Declare();
        Exchange(nExchanges > 1);
    }
    m_bHasLabel = Chance(30);
    if (m_bHasLabel)
    {
        // A jump to the label must not skip the initialisation of a variable that is read after it.
        Line("{");
        ++m_nIndent;
        Scope(4, 5 + Pick(8));
        Close();
        Line("done:");
    }
    else
    {
        Body(4, 5 + Pick(8));
    }
    if (std::exchange(m_nPlantIn, 0) != 0)
    {
        Plant();
    }
    ProbeAll();
    Line("out[0] = hash;");
    size_t nOut = 1;
    for (const SVariable& variable : m_vVariables)
    {
        if (nOut >= g_nOutputs)
        {
            break;
        }
        const std::string strOut = "out[" + std::to_string(nOut) + "] = ";
        if (variable.pType->bFloat)
        {
            Line(strOut + "bits_of(" + variable.strName + ");");
        }
        else
        {
            Line(strOut + "(uint)((ulong)" + variable.strName + " ^ ((ulong)" + variable.strName + " >> 32));");
        }
        ++nOut;
    }
    Close();
}

std::string CMaker::Make()
{
    MakeTypes();
    for (unsigned int nHelpers = Pick(3); nHelpers > 0; --nHelpers)
    {
        MakeHelper();
    }
    MakeKernelBody();
    return m_strText;
}

SPlantedKernel CMaker::MakePlanted(EPlanted ePlanted)
{
    m_Planted.ePlanted = ePlanted;
    m_nPlantIn = ePlanted == PLANTED_NOTHING || ePlanted == PLANTED_BARRIER ? 0 : 1 + Pick(6);
    m_Planted.strText = Make();
    return m_Planted;
}

} // namespace

SPlantedKernel MakePlantedKernel(uint64_t nSeed, const std::string& strName, EPlanted ePlanted)
{
    return CMaker(nSeed, strName, nullptr).MakePlanted(ePlanted);
}

std::string MakeKernel(uint64_t nSeed, const std::string& strName)
{
    return CMaker(nSeed, strName, nullptr).Make();
}

std::string MakeProbedKernel(uint64_t nSeed, const std::string& strName, CLayouts& layouts)
{
    return CMaker(nSeed, strName, &layouts).Make();
}

std::string SettleBytes(std::string strBytes, const std::string& strLayout)
{
    size_t nPlace = 0;
    const auto Settle = [&](auto value)
    {
        if (nPlace + sizeof value <= strBytes.size())
        {
            std::memcpy(&value, &strBytes[nPlace], sizeof value);
            value = value != value ? std::numeric_limits<decltype(value)>::quiet_NaN() : value;
            std::memcpy(&strBytes[nPlace], &value, sizeof value);
        }
        nPlace += sizeof value;
    };
    for (const char cPart : strLayout)
    {
        switch (cPart)
        {
        case 'f':
            Settle(0.0F);
            break;
        case 'd':
            Settle(0.0);
            break;
        default:
            if (cPart == '-' && nPlace < strBytes.size())
            {
                strBytes[nPlace] = 0;
            }
            ++nPlace;
            break;
        }
    }
    return strBytes;
}

} // namespace KestrelTest
