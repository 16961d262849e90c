#include "platform/compiler/Disassembler.h"

#include "platform/compiler/ControlFields.h"
#include "platform/compiler/InstructionShape.h"
#include "platform/compiler/Modifiers.h"
#include "platform/compiler/RegisterNames.h"
#include "platform/compiler/StreamHeader.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace KestrelPlatform
{
namespace
{

/// Words above this are easier to read in hexadecimal.
const uint32_t s_nLargestDecimal = 99999;

const char s_Components[] = "xyzw01";
const char s_MaskComponents[4][5] = {"____", "xyzw", "0000", "1111"};

/// Prints one stream into a string. An object serves one call.
class CPrinter
{
public:
    CPrinter(const uint32_t* pTokens, size_t nCount, std::string& strText)
        : m_pTokens(pTokens), m_nCount(nCount), m_strText(strText)
    {
    }

    bool Print(std::string& strError);

private:
    bool PrintItem();
    bool PrintLeadingMacros();
    bool PrintHeader();

    void PrintInstruction(const uint32_t* pItem, const SItemLayout& layout);
    void PrintComment(const uint32_t* pItem, const SItemLayout& layout);
    void PrintMnemonic(const uint32_t* pItem, const SItemLayout& layout);
    void PrintInstructionModifier(const uint32_t* pItem, const SItemLayout& layout, uint32_t& nBits);
    void PrintControls(const uint32_t* pItem, const SItemLayout& layout, uint32_t nBits);
    void PrintDestinationModifiers(const uint32_t* pItem, const SItemLayout& layout);
    void PrintModifierWords(const uint32_t* pItem, const SItemLayout& layout);
    size_t PrintOperand(const uint32_t* pOperand, bool bDestination);
    void PrintIndex(const uint32_t*& pWord);
    void PrintTrailingWord(uint32_t nOpcode, uint32_t nWord);
    void PrintRegister(uint32_t nToken);
    bool PrintMask(uint32_t nModifier);
    bool PrintSourceModifier(uint32_t nModifier);

    void Put(char c) { m_strText.push_back(c); }
    void Put(std::string_view text) { m_strText.append(text); }
    void PutDecimal(uint32_t n);
    void PutHex(uint32_t n);
    void PutNumber(uint32_t n) { n <= s_nLargestDecimal ? PutDecimal(n) : PutHex(n); }
    void PutSuffix(const char* pName, uint32_t n);
    void PutHexSuffix(const char* pName, uint32_t n);
    void PutSeparator();

    bool Fail(const char* pReason)
    {
        m_pReason = pReason;
        return false;
    }

    const uint32_t* m_pTokens;
    size_t m_nCount;
    std::string& m_strText;
    size_t m_nToken = 0;
    const char* m_pReason = nullptr;
    bool m_bFirstOperand = true;
    bool m_bJoiningComment = false; ///< the line in front is a comment that would swallow a comment
    uint32_t m_nLastOpcode = 0;
};

void CPrinter::PutDecimal(uint32_t n)
{
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), n);
    m_strText.append(buffer, result.ptr);
}

void CPrinter::PutHex(uint32_t n)
{
    char buffer[16] = {'0', 'x'};
    const auto result = std::to_chars(buffer + 2, buffer + sizeof(buffer), n, 16);
    for (char* p = buffer + 2; p != result.ptr; ++p)
    {
        *p = *p >= 'a' ? static_cast<char>(*p - 'a' + 'A') : *p;
    }
    m_strText.append(buffer, result.ptr);
}

void CPrinter::PutSuffix(const char* pName, uint32_t n)
{
    Put('_');
    Put(pName);
    Put('(');
    PutNumber(n);
    Put(')');
}

void CPrinter::PutHexSuffix(const char* pName, uint32_t n)
{
    Put('_');
    Put(pName);
    Put('(');
    PutHex(n);
    Put(')');
}

void CPrinter::PutSeparator()
{
    Put(m_bFirstOperand ? " " : ", ");
    m_bFirstOperand = false;
}

bool CPrinter::Print(std::string& strError)
{
    m_strText.clear();
    m_strText.reserve(m_nCount * 8);
    bool bOk = PrintLeadingMacros() && PrintHeader();
    while (bOk && m_nToken < m_nCount)
    {
        bOk = PrintItem();
    }
    if (!bOk)
    {
        m_strText.clear();
        strError = "token " + std::to_string(m_nToken) + ": " + m_pReason;
    }
    return bOk;
}

bool CPrinter::PrintLeadingMacros()
{
    while (m_nToken < m_nCount && (m_pTokens[m_nToken] & s_nOpcodeMask) == OpMacroDef)
    {
        do
        {
            if (!PrintItem())
            {
                return false;
            }
        } while (m_nLastOpcode != OpMacroEnd);
    }
    return true;
}

bool CPrinter::PrintHeader()
{
    if (m_nCount - m_nToken < 2)
    {
        return Fail("the stream is cut short: no language and version words");
    }
    const uint32_t nLanguage = m_pTokens[m_nToken];
    const uint32_t nVersion = m_pTokens[m_nToken + 1];
    const char* pKind = GetStreamKindName(nVersion);
    if (nLanguage == 0 && pKind != nullptr)
    {
        Put("il_");
        Put(pKind);
        Put('_');
        PutDecimal((nVersion >> 8) & 0xFF);
        Put('_');
        PutDecimal(nVersion & 0xFF);
    }
    else
    {
        Put("il(");
        PutHex(nLanguage);
        Put(", ");
        PutHex(nVersion);
        Put(')');
    }
    Put('\n');
    m_nToken += 2;
    return true;
}

bool CPrinter::PrintItem()
{
    SItemLayout layout;
    const uint32_t* pItem = m_pTokens + m_nToken;
    const char* pReason = nullptr;
    if (!MeasureItem(pItem, m_nCount - m_nToken, layout, pReason))
    {
        return Fail(pReason);
    }
    if (layout.nOpcode == OpComment)
    {
        PrintComment(pItem, layout);
    }
    else
    {
        PrintInstruction(pItem, layout);
        m_bJoiningComment = false;
    }
    Put('\n');
    m_nToken += layout.nWords;
    m_nLastOpcode = layout.nOpcode;
    return true;
}

/// Whether a comment's words are one line of text and nothing else.
bool IsLineComment(const uint32_t* pItem, const SItemLayout& layout, std::string_view& text)
{
    if (pItem[0] != OpComment)
    {
        return false;
    }
    const char* pText = reinterpret_cast<const char*>(pItem + layout.nTrailing + 1);
    const size_t nBytes = (layout.nTrailingWords - 1) * sizeof(uint32_t);
    const size_t nLength = nBytes == 0 ? 0 : strnlen(pText, nBytes);
    if (nLength / sizeof(uint32_t) + 1 != layout.nTrailingWords - 1)
    {
        return false;
    }
    for (size_t i = nLength; i < nBytes; ++i)
    {
        if (pText[i] != 0)
        {
            return false;
        }
    }
    text = std::string_view(pText, nLength);
    return text.find_first_of("\r\n") == std::string_view::npos;
}

bool HoldsJoiningWord(std::string_view text)
{
    return text.find("func") != std::string_view::npos || text.find("mdef") != std::string_view::npos ||
           text.find("mend") != std::string_view::npos;
}

void CPrinter::PrintComment(const uint32_t* pItem, const SItemLayout& layout)
{
    std::string_view text;
    if (!m_bJoiningComment && IsLineComment(pItem, layout, text))
    {
        Put(';');
        Put(text);
        m_bJoiningComment = HoldsJoiningWord(text);
        return;
    }
    m_bJoiningComment = false;
    m_bFirstOperand = true;
    Put("comment");
    PrintControls(pItem, layout, pItem[0] & ~(s_nOpcodeMask | s_nPrimaryBit | s_nSecondaryBit));
    PrintModifierWords(pItem, layout);
    for (size_t i = 1; i < layout.nTrailingWords; ++i)
    {
        PutSeparator();
        PutHex(pItem[layout.nTrailing + i]);
    }
}

void CPrinter::PrintInstruction(const uint32_t* pItem, const SItemLayout& layout)
{
    m_bFirstOperand = true;
    PrintMnemonic(pItem, layout);
    size_t nOffset = layout.nOperands;
    const uint32_t nOperands = layout.nSources + (layout.bDestination ? 1 : 0);
    for (uint32_t i = 0; i < nOperands; ++i)
    {
        PutSeparator();
        nOffset += PrintOperand(pItem + nOffset, layout.bDestination && i == 0);
    }
    if (layout.nOpcode == OpDclTypelessUav)
    {
        return;
    }
    for (size_t i = 0; i < layout.nTrailingWords; ++i)
    {
        PutSeparator();
        PrintTrailingWord(layout.nOpcode, pItem[layout.nTrailing + i]);
    }
}

void CPrinter::PrintTrailingWord(uint32_t nOpcode, uint32_t nWord)
{
    switch (nOpcode)
    {
    case OpDclLiteral:
        return PutHex(nWord);
    // Whoever looks for a call in the text looks for its decimal label.
    case OpCall:
    case OpCallNZ:
    case OpCallLogicalZ:
    case OpCallLogicalNZ:
    case OpFunc:
        return PutDecimal(nWord);
    default:
        return PutNumber(nWord);
    }
}

void CPrinter::PrintMnemonic(const uint32_t* pItem, const SItemLayout& layout)
{
    const SInstructionShape& shape = GetInstructionShape(layout.nOpcode);
    Put(shape.pName);
    uint32_t nBits = pItem[0] & ~s_nOpcodeMask;
    if (shape.bModifierWords)
    {
        nBits &= ~(s_nPrimaryBit | s_nSecondaryBit);
    }
    if (shape.bInstructionModifier)
    {
        PrintInstructionModifier(pItem, layout, nBits);
    }
    // The counts of these say how many words are written behind them.
    if (shape.eTrailing == TrailingByControls)
    {
        nBits = 0;
    }
    if (GetControlFields(layout.nOpcode).bOperand)
    {
        PrintModifierWords(pItem, layout);
        PutSeparator();
        PutDecimal((nBits >> 16) & s_nControlsMask);
        return;
    }
    PrintControls(pItem, layout, nBits);
    PrintModifierWords(pItem, layout);
    if (layout.bDestination)
    {
        PrintDestinationModifiers(pItem, layout);
    }
    if (layout.nOpcode == OpDclConstBuffer && layout.nPrimary != 0)
    {
        Put("_inline");
        for (size_t i = 0; i < pItem[layout.nPrimary]; ++i)
        {
            PutSeparator();
            PutHex(pItem[layout.nPrimary + 1 + i]);
        }
    }
}

void CPrinter::PrintInstructionModifier(const uint32_t* pItem, const SItemLayout& layout, uint32_t& nBits)
{
    Put('(');
    PutDecimal((pItem[0] >> 16) & s_nControlsMask);
    Put(')');
    nBits &= ~(s_nControlsMask << 16);
    const uint32_t nModifier = layout.nInstructionModifier;
    if (layout.nOpcode == OpMacroCall)
    {
        PutSuffix("out", nModifier >> 16);
        PutSuffix("in", nModifier & 0xFFFF);
        return;
    }
    if ((nModifier & s_nOutlineMacroBit) != 0)
    {
        Put("_outline");
    }
    if ((nModifier & ~s_nOutlineMacroBit) != 0)
    {
        PutHexSuffix("mod", nModifier & ~s_nOutlineMacroBit);
    }
}

void CPrinter::PrintControls(const uint32_t* pItem, const SItemLayout& layout, uint32_t nBits)
{
    for (const SControlField& field : GetControlFields(layout.nOpcode))
    {
        const uint32_t nValue = (nBits & field.Mask()) >> field.nShift;
        const bool bAlways = field.eForm == FieldNumberAlways || field.eForm == FieldEnumAlways;
        if (field.eForm == FieldValue ? nValue != field.nValue : nValue == 0 && !bAlways)
        {
            continue;
        }
        nBits &= ~field.Mask();
        if (field.eForm == FieldValue)
        {
            Put('_');
            Put(field.pName);
        }
        else if (nValue < field.nNames)
        {
            Put('_');
            Put(field.pName);
            Put('(');
            Put(field.pNames[nValue]);
            Put(')');
        }
        else
        {
            PutSuffix(field.pName, nValue);
        }
    }
    if (layout.nOpcode == OpDclTypelessUav)
    {
        PutSuffix("stride", pItem[layout.nTrailing]);
        PutSuffix("length", pItem[layout.nTrailing + 1]);
    }
    if (nBits != 0)
    {
        PutHexSuffix("ctl", nBits >> 16);
    }
}

void CPrinter::PrintModifierWords(const uint32_t* pItem, const SItemLayout& layout)
{
    if (layout.nPrimary != 0 && layout.nOpcode != OpDclConstBuffer)
    {
        PutHexSuffix("pri", pItem[layout.nPrimary]);
    }
    if (layout.nSecondary != 0)
    {
        PutHexSuffix("sec", pItem[layout.nSecondary]);
    }
}

void CPrinter::PrintDestinationModifiers(const uint32_t* pItem, const SItemLayout& layout)
{
    if ((pItem[layout.nOperands] & s_nOperandModifier) == 0)
    {
        return;
    }
    const uint32_t nModifier = pItem[layout.nOperands + 1];
    if ((nModifier & s_nDestinationReserved) != 0)
    {
        return;
    }
    for (const SModifierField& field : s_DestinationFields)
    {
        const uint32_t nValue = (nModifier & field.Mask()) >> field.nShift;
        if (nValue == 0)
        {
            continue;
        }
        if (field.nShift == s_nShiftScaleShift && nValue <= s_nShiftNames)
        {
            Put('_');
            Put(s_ShiftNames[nValue - 1]);
        }
        else if (field.nWidth == 1)
        {
            Put('_');
            Put(field.pName);
        }
        else
        {
            PutSuffix(field.pName, nValue);
        }
    }
}

void CPrinter::PrintRegister(uint32_t nToken)
{
    const uint32_t nType = (nToken >> 16) & 0x3F;
    const uint32_t nNumber = nToken & 0xFFFF;
    Put(GetRegisterTypeName(nType));
    if (nType == RegisterTemp && (nToken & s_nOperandNegative) != 0)
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

/// \return false, with nothing printed, for a word that the mnemonic and the mask can't spell
bool CPrinter::PrintMask(uint32_t nModifier)
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

/// \return false, with nothing printed, for a word with a selector or bits that have no name
bool CPrinter::PrintSourceModifier(uint32_t nModifier)
{
    if ((nModifier & s_nSourceReserved) != 0)
    {
        return false;
    }
    char swizzle[4];
    for (unsigned int i = 0; i < 4; ++i)
    {
        const uint32_t nSelect = (nModifier >> (4 * i)) & 7;
        if (nSelect > 5)
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
        if (nValue == 0)
        {
            continue;
        }
        if (field.nWidth == 1)
        {
            Put('_');
            Put(field.pName);
        }
        else
        {
            PutSuffix(field.pName, nValue);
        }
    }
    return true;
}

void CPrinter::PrintIndex(const uint32_t*& pWord)
{
    const uint32_t nToken = *pWord++;
    PrintRegister(nToken);
    bool bSpelled = true;
    uint32_t nModifier = 0;
    if ((nToken & s_nOperandModifier) != 0)
    {
        nModifier = *pWord++;
        bSpelled = PrintSourceModifier(nModifier);
    }
    if (!bSpelled)
    {
        Put("{mod(");
        PutHex(nModifier);
        Put(")}");
    }
    const bool bTemp = ((nToken >> 16) & 0x3F) == RegisterTemp;
    const uint32_t nBits = nToken & s_nIndexRawBits & ~(bTemp ? s_nOperandNegative : 0);
    if (nBits != 0)
    {
        Put("{bits(");
        PutHex(nBits);
        Put(")}");
    }
}

size_t CPrinter::PrintOperand(const uint32_t* pOperand, bool bDestination)
{
    const uint32_t nToken = pOperand[0];
    const uint32_t nAddressing = (nToken >> s_nOperandRelativeShift) & 3;
    const bool bModifier = (nToken & s_nOperandModifier) != 0;
    const uint32_t nModifier = bModifier ? pOperand[1] : 0;
    const uint32_t* pWord = pOperand + (bModifier ? 2 : 1);
    uint32_t nBits = nToken & s_nOperandReservedBits;

    PrintRegister(nToken);
    if (((nToken >> 16) & 0x3F) != RegisterTemp)
    {
        nBits |= nToken & s_nOperandNegative;
    }
    if ((nToken & s_nOperandDimension) != 0)
    {
        if (nAddressing == AddressAbsolute)
        {
            Put("[dim ");
            PutNumber(*pWord++);
            Put(']');
        }
        else
        {
            nBits |= s_nOperandDimension;
        }
    }
    if (nAddressing == AddressOther)
    {
        nBits |= AddressOther << s_nOperandRelativeShift;
    }
    const bool bIndex = nAddressing == AddressRelative || nAddressing == AddressRegister;
    const bool bImmediate = (nToken & s_nOperandImmediate) != 0;
    if (bIndex || bImmediate)
    {
        Put('[');
        if (nAddressing == AddressRegister)
        {
            PrintIndex(pWord);
        }
        else if (nAddressing == AddressRelative)
        {
            Put("rel(");
            PutHex(*pWord++);
            Put(')');
        }
        if (bImmediate)
        {
            if (bIndex)
            {
                Put('+');
            }
            PutNumber(*pWord++);
        }
        Put(']');
    }
    const bool bSpelled = !bModifier || (bDestination ? PrintMask(nModifier) : PrintSourceModifier(nModifier));
    if (!bSpelled)
    {
        Put("{mod(");
        PutHex(nModifier);
        Put(")}");
    }
    if ((nToken & s_nOperandExtended) != 0)
    {
        Put("{ext(");
        PutHex(*pWord++);
        Put(")}");
    }
    if (nBits != 0)
    {
        Put("{bits(");
        PutHex(nBits);
        Put(")}");
    }
    return static_cast<size_t>(pWord - pOperand);
}

} // namespace

bool DisassembleIL(const uint32_t* pTokens, size_t nCount, std::string& strText, std::string& strError)
{
    strError.clear();
    CPrinter printer(pTokens, nCount, strText);
    return printer.Print(strError);
}

} // namespace KestrelPlatform
