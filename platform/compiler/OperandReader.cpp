#include "platform/compiler/OperandReader.h"

#include "platform/compiler/Modifiers.h"
#include "platform/compiler/StreamHeader.h"
#include "platform/il/InstructionShape.h"
#include "platform/il/RegisterNames.h"

namespace KestrelPlatform
{
namespace
{

/// A word of an operand that may be absent.
struct SWord
{
    bool bPresent = false;
    uint32_t nValue = 0;

    void Set(uint32_t n)
    {
        bPresent = true;
        nValue = n;
    }
};

/// The words of one operand, which are put in order once all are known.
struct SOperand
{
    uint32_t nToken = 0;
    SWord modifier;
    SWord dimension;
    SWord relative; ///< the raw address word, or the index register's token
    SWord indexModifier;
    SWord immediate;
    SWord extended;
    bool bComponents = false; ///< a mask or swizzle has been read
    bool bRaw = false;        ///< a part in braces has been read
};

/// Where an operand stands. This decides what may follow its register.
enum ERole
{
    RoleSource,
    RoleDestination,
    RoleIndex
};

/// The selectors of a swizzle, by character; -1 for a character that selects nothing.
class CComponents
{
public:
    constexpr CComponents()
    {
        for (int8_t& nSelect : m_nSelects)
        {
            nSelect = -1;
        }
        const std::string_view components = "xyzw01";
        for (size_t i = 0; i < components.size(); ++i)
        {
            m_nSelects[static_cast<unsigned char>(components[i])] = static_cast<int8_t>(i);
        }
    }

    constexpr int Find(char c) const { return m_nSelects[static_cast<unsigned char>(c)]; }

private:
    int8_t m_nSelects[256] = {};
};

constexpr CComponents s_ComponentTable;

int FindComponent(char c)
{
    return s_ComponentTable.Find(c);
}

class COperandReader
{
public:
    explicit COperandReader(CLineScanner& scanner) : m_Scanner(scanner) {}

    bool Read(ERole eRole, SOperand& operand);

private:
    bool ReadRegister(SOperand& operand);
    bool ReadNegativeNumber(SOperand& operand);
    bool ReadPart(char cPart, ERole eRole, SOperand& operand);
    bool ReadComponents(ERole eRole, SOperand& operand);
    bool ReadBrackets(SOperand& operand);
    bool ReadIndexExpression(SOperand& operand);
    bool ReadIndexRegister(SOperand& operand);
    bool ReadMask(SOperand& operand);
    bool ReadSwizzle(SOperand& operand);
    bool ReadSourceSuffix(SOperand& operand);
    bool ReadNegate(uint32_t& nModifier);
    bool ReadRaw(ERole eRole, SOperand& operand);
    bool ReadBits(ERole eRole, const char* pWhere, SOperand& operand);

    CLineScanner& m_Scanner;
};

bool COperandReader::ReadRegister(SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    const int nType = FindRegisterType(m_Scanner.TakeLetters());
    if (nType < 0)
    {
        return m_Scanner.FailAt(pStart, "a register");
    }
    operand.nToken = static_cast<uint32_t>(nType) << 16;
    const char cNext = m_Scanner.Peek();
    if (!IsOfClass(cNext, CharDigit))
    {
        return cNext != '-' || nType != IL_REGTYPE_TEMP || ReadNegativeNumber(operand);
    }
    uint32_t nNumber = 0;
    const bool bOk = m_Scanner.TakeDigits(nNumber, 0xFFFF, "a register number");
    operand.nToken |= nNumber;
    return bOk;
}

bool COperandReader::ReadNegativeNumber(SOperand& operand)
{
    m_Scanner.Accept('-');
    const char* pNumber = m_Scanner.Position();
    uint32_t nNumber = 0;
    if (!m_Scanner.TakeDigits(nNumber, s_nOperandNumbers, "a register number"))
    {
        return false;
    }
    if (nNumber == 0)
    {
        return m_Scanner.FailAt(pNumber, "a register number above 0");
    }
    operand.nToken |= s_nOperandNegative | (s_nOperandNumbers - nNumber);
    return true;
}

bool COperandReader::ReadIndexRegister(SOperand& operand)
{
    SOperand index;
    if (!Read(RoleIndex, index))
    {
        return false;
    }
    operand.nToken |= AddressRegister << s_nOperandRelativeShift;
    operand.relative.Set(index.nToken);
    operand.indexModifier = index.modifier;
    return true;
}

bool COperandReader::ReadIndexExpression(SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    const char cFirst = m_Scanner.Peek();
    if (IsOfClass(cFirst, CharDigit) || cFirst == '-')
    {
        operand.immediate.bPresent = true;
        return m_Scanner.TakeNumber(operand.immediate.nValue);
    }
    if (m_Scanner.TakeLetters() == "rel" && m_Scanner.Accept('('))
    {
        operand.nToken |= AddressRelative << s_nOperandRelativeShift;
        operand.relative.bPresent = true;
        if (!m_Scanner.TakeNumber(operand.relative.nValue) || !m_Scanner.Expect(')'))
        {
            return false;
        }
    }
    else
    {
        m_Scanner.SetPosition(pStart);
        if (!ReadIndexRegister(operand))
        {
            return false;
        }
    }
    m_Scanner.SkipBlanks();
    const bool bMinus = m_Scanner.Accept('-');
    if (!bMinus && !m_Scanner.Accept('+'))
    {
        return true;
    }
    m_Scanner.SkipBlanks();
    uint32_t nOffset = 0;
    if (!m_Scanner.TakeNumber(nOffset))
    {
        return false;
    }
    operand.immediate.Set(bMinus ? 0u - nOffset : nOffset);
    return true;
}

bool COperandReader::ReadBrackets(SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    m_Scanner.Accept('[');
    m_Scanner.SkipBlanks();
    const char* pInside = m_Scanner.Position();
    if (m_Scanner.TakeLetters() == "dim")
    {
        if (operand.dimension.bPresent || operand.relative.bPresent || operand.immediate.bPresent)
        {
            return m_Scanner.Refuse(pStart, "a dimension stands in front of the other index, and once");
        }
        m_Scanner.SkipBlanks();
        operand.nToken |= s_nOperandDimension;
        operand.dimension.bPresent = true;
        return m_Scanner.TakeNumber(operand.dimension.nValue) && m_Scanner.Expect(']');
    }
    m_Scanner.SetPosition(pInside);
    if (operand.relative.bPresent || operand.immediate.bPresent)
    {
        return m_Scanner.Refuse(pStart, "a register has one index");
    }
    if (!ReadIndexExpression(operand))
    {
        return false;
    }
    m_Scanner.SkipBlanks();
    if (operand.dimension.bPresent && operand.relative.bPresent)
    {
        return m_Scanner.Refuse(pStart, "a register has either a dimension or a run-time index");
    }
    return m_Scanner.Accept(']') || m_Scanner.Fail("']'");
}

/// Reads a mask: letters by name, or four places with '_', '0' or '1' in them.
bool COperandReader::ReadMask(SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    const std::string_view mask = m_Scanner.TakeWord(true);
    uint32_t nModifier = 0;
    int nLastPlace = -1;
    for (size_t i = 0; i < mask.size(); ++i)
    {
        const int nComponent = FindComponent(mask[i]);
        const bool bLetter = nComponent >= 0 && nComponent < 4;
        const int nPlace = bLetter ? nComponent : static_cast<int>(i);
        if ((!bLetter && (mask.size() != 4 || (nComponent < 0 && mask[i] != '_'))) ||
            (mask.size() == 4 && nPlace != static_cast<int>(i)) || nPlace <= nLastPlace)
        {
            nLastPlace = -1;
            break;
        }
        nLastPlace = nPlace;
        const uint32_t nWrite = bLetter ? 1u : nComponent == 4 ? 2u : nComponent == 5 ? 3u : 0u;
        nModifier |= nWrite << (2 * nPlace);
    }
    if (nLastPlace < 0 || mask.size() > 4)
    {
        return m_Scanner.FailAt(pStart, "a mask such as xy, x_z_ or x01_");
    }
    operand.modifier.Set((operand.modifier.nValue & ~s_nMaskBits) | nModifier);
    return true;
}

/// Reads a swizzle; the last of fewer than four selectors stands for the rest.
bool COperandReader::ReadSwizzle(SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    const std::string_view swizzle = m_Scanner.TakeWord(false);
    uint32_t nModifier = 0;
    bool bValid = !swizzle.empty() && swizzle.size() <= 4;
    for (size_t i = 0; bValid && i < swizzle.size(); ++i)
    {
        const int nSelect = FindComponent(swizzle[i]);
        bValid = nSelect >= 0;
        // A selector also fills the places after it, until another one follows.
        const uint32_t nBefore = (1u << (4 * i)) - 1;
        nModifier = (nModifier & nBefore) | (static_cast<uint32_t>(nSelect) * 0x1111u << (4 * i));
    }
    if (!bValid)
    {
        return m_Scanner.FailAt(pStart, "a swizzle of x, y, z, w, 0 and 1");
    }
    nModifier &= s_nSwizzleBits;
    operand.modifier.Set((operand.modifier.nValue & ~s_nSwizzleBits) | nModifier);
    return true;
}

bool COperandReader::ReadNegate(uint32_t& nModifier)
{
    if (!m_Scanner.Accept('('))
    {
        return m_Scanner.Fail("'(' and the negated components");
    }
    const char* pStart = m_Scanner.Position();
    for (const char c : m_Scanner.TakeLetters())
    {
        const int nComponent = FindComponent(c);
        if (nComponent < 0 || nComponent > 3)
        {
            return m_Scanner.FailAt(pStart, "components of x, y, z, w");
        }
        nModifier |= 8u << (4 * nComponent);
    }
    return m_Scanner.Accept(')') || m_Scanner.Fail("')'");
}

bool COperandReader::ReadSourceSuffix(SOperand& operand)
{
    m_Scanner.Accept('_');
    const char* pStart = m_Scanner.Position();
    const std::string_view name = m_Scanner.TakeWord(false);
    if (!operand.modifier.bPresent)
    {
        operand.modifier.Set(s_nSwizzleIdentity);
    }
    if (name == "neg")
    {
        return ReadNegate(operand.modifier.nValue);
    }
    for (const SModifierField& field : s_SourceFields)
    {
        if (name != field.name)
        {
            continue;
        }
        uint32_t nValue = 1;
        if (field.nWidth > 1 &&
            (!m_Scanner.Accept('(') || !m_Scanner.TakeNumber(nValue, (1u << field.nWidth) - 1u, field.name) ||
             !m_Scanner.Accept(')')))
        {
            return m_Scanner.Fail("a number in brackets");
        }
        operand.modifier.nValue |= nValue << field.nShift;
        return true;
    }
    return m_Scanner.FailAt(pStart, "a source modifier");
}

/// Raw bits can't be ones that say a word follows, or that other syntax sets.
bool COperandReader::ReadBits(ERole eRole, const char* pWhere, SOperand& operand)
{
    uint32_t nBits = 0;
    if (!m_Scanner.TakeNumber(nBits))
    {
        return false;
    }
    const bool bTemp = OperandType(operand.nToken) == IL_REGTYPE_TEMP;
    const uint32_t nSign = bTemp ? 0 : s_nOperandNegative;
    uint32_t nAllowed = s_nOperandReservedBits | nSign;
    if (eRole == RoleIndex)
    {
        nAllowed = s_nIndexRawBits & (bTemp ? ~s_nOperandNegative : ~0u);
    }
    else
    {
        const uint32_t nAddressing = (operand.nToken >> s_nOperandRelativeShift) & 3;
        const uint32_t nOther = AddressOther << s_nOperandRelativeShift;
        const bool bOther = nAddressing == AddressAbsolute && (nBits & nOther) == nOther && !operand.dimension.bPresent;
        nAllowed |= bOther ? nOther : 0;
        nAllowed |= bOther || nAddressing == AddressRelative ? s_nOperandDimension : 0;
    }
    if ((nBits & ~nAllowed) != 0)
    {
        return m_Scanner.Refuse(pWhere, "bits(...) sets a bit that has a spelling of its own or brings a word");
    }
    operand.nToken |= nBits;
    return true;
}

bool COperandReader::ReadRaw(ERole eRole, SOperand& operand)
{
    m_Scanner.Accept('{');
    const char* pStart = m_Scanner.Position();
    const std::string_view name = m_Scanner.TakeLetters();
    bool bOk = m_Scanner.Accept('(') || m_Scanner.Fail("'('");
    if (bOk && name == "mod")
    {
        if (operand.modifier.bPresent)
        {
            return m_Scanner.Refuse(pStart, "the modifier word is given already");
        }
        operand.modifier.bPresent = true;
        bOk = m_Scanner.TakeNumber(operand.modifier.nValue);
    }
    else if (bOk && name == "ext" && eRole != RoleIndex)
    {
        operand.nToken |= s_nOperandExtended;
        operand.extended.bPresent = true;
        bOk = m_Scanner.TakeNumber(operand.extended.nValue);
    }
    else if (bOk && name == "bits")
    {
        bOk = ReadBits(eRole, pStart, operand);
    }
    else if (bOk)
    {
        return m_Scanner.FailAt(pStart, "mod, ext or bits");
    }
    return bOk && m_Scanner.Expect(')') && (m_Scanner.Accept('}') || m_Scanner.Fail("'}'"));
}

bool COperandReader::ReadComponents(ERole eRole, SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    if (operand.bComponents)
    {
        return m_Scanner.Refuse(pStart, "the components are given already");
    }
    operand.bComponents = true;
    m_Scanner.Accept('.');
    return eRole == RoleDestination ? ReadMask(operand) : ReadSwizzle(operand);
}

/// Reads the part that the next character opens. Parts in braces come last, as their meaning depends on the others.
bool COperandReader::ReadPart(char cPart, ERole eRole, SOperand& operand)
{
    const char* pStart = m_Scanner.Position();
    if (operand.bRaw && cPart != '{')
    {
        return m_Scanner.Refuse(pStart, "parts in braces stand last");
    }
    switch (cPart)
    {
    case '[':
        return eRole == RoleIndex ? m_Scanner.Refuse(pStart, "an index register has no index of its own")
                                  : ReadBrackets(operand);
    case '.':
        return ReadComponents(eRole, operand);
    case '_':
        return eRole == RoleDestination
                   ? m_Scanner.Refuse(pStart, "modifiers of a destination stand after the mnemonic")
                   : ReadSourceSuffix(operand);
    default:
        operand.bRaw = true;
        return ReadRaw(eRole, operand);
    }
}

bool COperandReader::Read(ERole eRole, SOperand& operand)
{
    if (!ReadRegister(operand))
    {
        return false;
    }
    for (char c = m_Scanner.Peek(); IsOfClass(c, CharOperandPart); c = m_Scanner.Peek())
    {
        if (!ReadPart(c, eRole, operand))
        {
            return false;
        }
    }
    operand.nToken |= operand.modifier.bPresent ? s_nOperandModifier : 0;
    operand.nToken |= operand.immediate.bPresent ? s_nOperandImmediate : 0;
    return true;
}

void Append(const SOperand& operand, std::vector<uint32_t>& vTokens)
{
    vTokens.push_back(operand.nToken);
    const auto AppendWord = [&vTokens](const SWord& word)
    {
        if (word.bPresent)
        {
            vTokens.push_back(word.nValue);
        }
    };
    AppendWord(operand.modifier);
    if (IsPlainOperand(operand.nToken))
    {
        return;
    }
    AppendWord(operand.dimension);
    AppendWord(operand.relative);
    AppendWord(operand.indexModifier);
    AppendWord(operand.immediate);
    AppendWord(operand.extended);
}

} // namespace

bool ReadSource(CLineScanner& scanner, std::vector<uint32_t>& vTokens)
{
    SOperand operand;
    if (!COperandReader(scanner).Read(RoleSource, operand))
    {
        return false;
    }
    Append(operand, vTokens);
    return true;
}

bool ReadDestination(CLineScanner& scanner, bool bModifiers, uint32_t nModifiers, std::vector<uint32_t>& vTokens)
{
    SOperand operand;
    const char* pStart = scanner.Position();
    if (!COperandReader(scanner).Read(RoleDestination, operand))
    {
        return false;
    }
    if (bModifiers)
    {
        if ((operand.modifier.nValue & ~s_nMaskBits) != 0)
        {
            return scanner.Refuse(pStart, "mod(...) can't stand with modifiers after the mnemonic");
        }
        const uint32_t nMask = operand.modifier.bPresent ? operand.modifier.nValue : s_nMaskAll;
        operand.modifier.Set(nMask | nModifiers);
        operand.nToken |= s_nOperandModifier;
    }
    Append(operand, vTokens);
    return true;
}

} // namespace KestrelPlatform
