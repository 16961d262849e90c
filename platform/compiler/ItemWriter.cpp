#include "platform/compiler/ItemWriter.h"

#include "platform/compiler/Modifiers.h"
#include "platform/compiler/StreamHeader.h"
#include "platform/il/InstructionShape.h"
#include "platform/il/RegisterNames.h"

#include <charconv>

namespace KestrelPlatform
{
namespace
{

/// Numbers above this are easier to read in hexadecimal.
const uint32_t s_nLargestDecimal = 99999;

/// Digits of a 32-bit number.
const size_t s_nLongestNumber = 10;

const char s_Components[] = "xyzw01";

/// The text of a mask: letters alone if they say everything, else four places.
struct SMaskText
{
    char letters[4] = {};
    uint8_t nLength = 4;
};

constexpr SMaskText MakeMaskText(uint32_t nMask)
{
    const char components[4][5] = {"____", "xyzw", "0000", "1111"};
    SMaskText text;
    uint8_t nLetters = 0;
    bool bOther = false; // a place without a letter precedes one with a letter, or a constant
    for (uint32_t i = 0; i < 4; ++i)
    {
        const uint32_t nWrite = (nMask >> (2 * i)) & 3;
        text.letters[i] = components[nWrite][i];
        bOther = bOther || nWrite > 1 || (nWrite == 1 && nLetters < i);
        nLetters = nWrite == 0 ? nLetters : static_cast<uint8_t>(i + 1);
    }
    text.nLength = bOther || nLetters == 0 ? 4 : nLetters;
    return text;
}

struct SMaskTexts
{
    SMaskText masks[s_nMaskBits + 1];

    constexpr SMaskTexts()
    {
        for (uint32_t nMask = 0; nMask <= s_nMaskBits; ++nMask)
        {
            masks[nMask] = MakeMaskText(nMask);
        }
    }
};

constexpr SMaskTexts s_MaskTexts;

bool IsTemp(uint32_t nToken)
{
    return OperandType(nToken) == IL_REGTYPE_TEMP;
}

/// The bits of an operand's token that the rest of its text doesn't express.
uint32_t GetRawBits(uint32_t nToken)
{
    const uint32_t nAddressing = (nToken >> s_nOperandRelativeShift) & 3;
    uint32_t nBits = nToken & s_nOperandReservedBits;
    if (!IsTemp(nToken))
    {
        nBits |= nToken & s_nOperandNegative;
    }
    if (nAddressing != AddressAbsolute)
    {
        nBits |= nToken & s_nOperandDimension;
    }
    if (nAddressing == AddressOther)
    {
        nBits |= AddressOther << s_nOperandRelativeShift;
    }
    return nBits;
}

} // namespace

/// Grows the room in proportion to the text, so that a character costs the same in a long text.
void CItemWriter::Grow(size_t nCharacters)
{
    const size_t nLength = m_p == nullptr ? 0 : Length();
    m_strText.resize(nLength + nLength / 2 + nCharacters);
    m_p = m_strText.data() + nLength;
    m_pEnd = m_strText.data() + m_strText.size();
}

void CItemWriter::PutDecimal(uint32_t n)
{
    NeedRoom(s_nLongestNumber);
    m_p = std::to_chars(m_p, m_pEnd, n).ptr;
}

void CItemWriter::PutHex(uint32_t n)
{
    Put("0x");
    NeedRoom(s_nLongestNumber);
    char* pStart = m_p;
    m_p = std::to_chars(m_p, m_pEnd, n, 16).ptr;
    for (char* p = pStart; p != m_p; ++p)
    {
        *p = *p >= 'a' ? static_cast<char>(*p - 'a' + 'A') : *p;
    }
}

void CItemWriter::PutNumber(uint32_t n)
{
    n <= s_nLargestDecimal ? PutDecimal(n) : PutHex(n);
}

void CItemWriter::PutSuffix(std::string_view name)
{
    Put('_');
    Put(name);
}

void CItemWriter::PutSuffix(std::string_view name, uint32_t n)
{
    PutSuffix(name);
    Put('(');
    PutNumber(n);
    Put(')');
}

void CItemWriter::PutHexSuffix(std::string_view name, uint32_t n)
{
    PutSuffix(name);
    Put('(');
    PutHex(n);
    Put(')');
}

void CItemWriter::PutSuffix(std::string_view name, std::string_view word)
{
    PutSuffix(name);
    Put('(');
    Put(word);
    Put(')');
}

void CItemWriter::PutRaw(std::string_view name, uint32_t n)
{
    Put('{');
    Put(name);
    Put('(');
    PutHex(n);
    Put(")}");
}

void CItemWriter::PutRegister(uint32_t nToken)
{
    const uint32_t nType = OperandType(nToken);
    const uint32_t nNumber = nToken & 0xFFFF;
    const std::string_view name = GetRegisterTypeName(nType);
    if (name.size() == 1)
    {
        Put(name.front());
    }
    else
    {
        Put(name);
    }
    if (IsTemp(nToken) && (nToken & s_nOperandNegative) != 0)
    {
        Put('-');
        PutDecimal(s_nOperandNumbers - nNumber);
        return;
    }
    if (nNumber != 0 || !IsRegisterNumberOptional(nType))
    {
        PutDecimal(nNumber);
    }
}

/// \return false, with nothing put, for a word that the mnemonic and the mask can't spell
bool CItemWriter::PutMask(uint32_t nModifier)
{
    if ((nModifier & s_nDestinationReserved) != 0)
    {
        return false;
    }
    const SMaskText& mask = s_MaskTexts.masks[nModifier & s_nMaskBits];
    Put('.');
    Put(std::string_view(mask.letters, mask.nLength));
    return true;
}

/// \return false, with nothing put, for a word with a selector or bits that have no name
bool CItemWriter::PutSourceModifier(uint32_t nModifier)
{
    // Only selectors 6 and 7 have both bit 4 and bit 2.
    const uint32_t nUnnamed = nModifier & nModifier << 1 & 0x4444;
    if ((nUnnamed | (nModifier & s_nSourceReserved)) != 0)
    {
        return false;
    }
    const uint32_t nSelects = nModifier & s_nSwizzleBits;
    const unsigned int nPlaces = nSelects == (nSelects & 7) * 0x1111 ? 1 : 4;
    Put('.');
    for (unsigned int i = 0; i < nPlaces; ++i)
    {
        Put(s_Components[(nSelects >> (4 * i)) & 7]);
    }
    if ((nModifier & ~s_nSwizzleBits) != 0)
    {
        PutSourceFields(nModifier);
    }
    return true;
}

void CItemWriter::PutSourceFields(uint32_t nModifier)
{
    if ((nModifier & s_nNegateBits) != 0)
    {
        Put("_neg(");
        for (unsigned int i = 0; i < 4; ++i)
        {
            if (((nModifier >> (4 * i + 3)) & 1) != 0)
            {
                Put(s_Components[i]);
            }
        }
        Put(')');
    }
    for (const SModifierField& field : s_SourceFields)
    {
        const uint32_t nValue = (nModifier & field.Mask()) >> field.nShift;
        if (nValue != 0)
        {
            field.nWidth == 1 ? PutSuffix(field.name) : PutSuffix(field.name, nValue);
        }
    }
}

void CItemWriter::PutModifier(uint32_t nModifier, bool bDestination)
{
    if (!(bDestination ? PutMask(nModifier) : PutSourceModifier(nModifier)))
    {
        PutRaw("mod", nModifier);
    }
}

void CItemWriter::PutIndexRegister(const uint32_t*& pWord)
{
    const uint32_t nToken = *pWord++;
    PutRegister(nToken);
    if ((nToken & s_nOperandModifier) != 0)
    {
        PutModifier(*pWord++, false);
    }
    const uint32_t nBits = nToken & s_nIndexRawBits & ~(IsTemp(nToken) ? s_nOperandNegative : 0);
    if (nBits != 0)
    {
        PutRaw("bits", nBits);
    }
}

void CItemWriter::PutBrackets(uint32_t nToken, const uint32_t*& pWord)
{
    const uint32_t nAddressing = (nToken >> s_nOperandRelativeShift) & 3;
    if (nAddressing == AddressAbsolute && (nToken & s_nOperandDimension) != 0)
    {
        Put("[dim ");
        PutNumber(*pWord++);
        Put(']');
    }
    const bool bIndex = nAddressing == AddressRelative || nAddressing == AddressRegister;
    const bool bImmediate = (nToken & s_nOperandImmediate) != 0;
    if (!bIndex && !bImmediate)
    {
        return;
    }
    Put('[');
    if (nAddressing == AddressRegister)
    {
        PutIndexRegister(pWord);
    }
    else if (nAddressing == AddressRelative)
    {
        Put("rel(");
        PutHex(*pWord++);
        Put(')');
    }
    if (bImmediate)
    {
        Put(bIndex ? "+" : "");
        PutNumber(*pWord++);
    }
    Put(']');
}

size_t CItemWriter::PutOperand(const uint32_t* pOperand, bool bDestination)
{
    const uint32_t nToken = pOperand[0];
    const bool bModifier = (nToken & s_nOperandModifier) != 0;
    const bool bPlain = IsPlainOperand(nToken);
    const uint32_t* pWord = pOperand + (bModifier ? 2 : 1);
    PutRegister(nToken);
    if (!bPlain)
    {
        PutBrackets(nToken, pWord);
    }
    if (bModifier)
    {
        PutModifier(pOperand[1], bDestination);
    }
    if (!bPlain)
    {
        PutRawParts(nToken, pWord);
    }
    return static_cast<size_t>(pWord - pOperand);
}

/// Puts, in braces, what has no other spelling.
void CItemWriter::PutRawParts(uint32_t nToken, const uint32_t*& pWord)
{
    if ((nToken & s_nOperandExtended) != 0)
    {
        PutRaw("ext", *pWord++);
    }
    const uint32_t nBits = GetRawBits(nToken);
    if (nBits != 0)
    {
        PutRaw("bits", nBits);
    }
}

} // namespace KestrelPlatform
