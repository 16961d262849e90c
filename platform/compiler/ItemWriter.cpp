#include "platform/compiler/ItemWriter.h"

#include "platform/compiler/InstructionShape.h"
#include "platform/compiler/Modifiers.h"
#include "platform/compiler/RegisterNames.h"
#include "platform/compiler/StreamHeader.h"

#include <charconv>

namespace KestrelPlatform
{
namespace
{

/// Numbers above this are easier to read in hexadecimal.
const uint32_t s_nLargestDecimal = 99999;

const char s_Components[] = "xyzw01";
const char s_MaskComponents[4][5] = {"____", "xyzw", "0000", "1111"};

bool IsTemp(uint32_t nToken)
{
    return ((nToken >> 16) & 0x3F) == RegisterTemp;
}

/// The bits of an operand's token that nothing else in its text tells.
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

void CItemWriter::PutDecimal(uint32_t n)
{
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), n);
    m_strText.append(buffer, result.ptr);
}

void CItemWriter::PutHex(uint32_t n)
{
    char buffer[16] = {'0', 'x'};
    const auto result = std::to_chars(buffer + 2, buffer + sizeof(buffer), n, 16);
    for (char* p = buffer + 2; p != result.ptr; ++p)
    {
        *p = *p >= 'a' ? static_cast<char>(*p - 'a' + 'A') : *p;
    }
    m_strText.append(buffer, result.ptr);
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
    const uint32_t nType = (nToken >> 16) & 0x3F;
    const uint32_t nNumber = nToken & 0xFFFF;
    Put(GetRegisterTypeName(nType));
    if (IsTemp(nToken) && (nToken & s_nOperandNegative) != 0)
    {
        Put('-');
        PutDecimal(0x10000 - nNumber);
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
    char mask[4];
    for (unsigned int i = 0; i < 4; ++i)
    {
        mask[i] = s_MaskComponents[(nModifier >> (2 * i)) & 3][i];
    }
    size_t nLength = 4;
    while (nLength > 1 && mask[nLength - 1] == '_')
    {
        --nLength;
    }
    const std::string_view letters(mask, nLength);
    // Shortened only where letters alone tell the whole mask.
    Put('.');
    Put(letters.find_first_of("_01") == std::string_view::npos ? letters : std::string_view(mask, 4));
    return true;
}

/// \return false, with nothing put, for a word with a selector or bits that have no name
bool CItemWriter::PutSourceModifier(uint32_t nModifier)
{
    char swizzle[4];
    for (unsigned int i = 0; i < 4; ++i)
    {
        const uint32_t nSelect = (nModifier >> (4 * i)) & 7;
        if (nSelect > 5 || (nModifier & s_nSourceReserved) != 0)
        {
            return false;
        }
        swizzle[i] = s_Components[nSelect];
    }
    const bool bOne = swizzle[0] == swizzle[1] && swizzle[0] == swizzle[2] && swizzle[0] == swizzle[3];
    Put('.');
    Put(std::string_view(swizzle, bOne ? 1 : 4));
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
    return true;
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
    const uint32_t* pWord = pOperand + (bModifier ? 2 : 1);
    PutRegister(nToken);
    PutBrackets(nToken, pWord);
    if (bModifier)
    {
        PutModifier(pOperand[1], bDestination);
    }
    if ((nToken & s_nOperandExtended) != 0)
    {
        PutRaw("ext", *pWord++);
    }
    const uint32_t nBits = GetRawBits(nToken);
    if (nBits != 0)
    {
        PutRaw("bits", nBits);
    }
    return static_cast<size_t>(pWord - pOperand);
}

} // namespace KestrelPlatform
