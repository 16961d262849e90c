#include "platform/compiler/Disassembler.h"

#include "platform/compiler/ControlFields.h"
#include "platform/compiler/ItemLayout.h"
#include "platform/compiler/ItemWriter.h"
#include "platform/compiler/LastConversion.h"
#include "platform/compiler/Modifiers.h"
#include "platform/compiler/StreamHeader.h"

#include <cstring>
#include <string_view>

namespace KestrelPlatform
{
namespace
{

/// A little more than in a usual text.
const size_t s_nCharactersPerToken = 4;

/// The stream that was disassembled last; its pieces are the items after the header. An item's text depends on the
/// item, and on whether the line before it is a joining comment.
CLastConversionKeeper<uint32_t, char> s_LastStream;

/// Prints one stream into a string. Each object serves one call.
class CPrinter
{
public:
    CPrinter(const uint32_t* pTokens, size_t nCount, std::string& strText, CLastConversion<uint32_t, char>& last)
        : m_pTokens(pTokens), m_nCount(nCount), m_strText(strText), m_Writer(strText, nCount * s_nCharactersPerToken),
          m_Last(last)
    {
    }

    bool Print(std::string& strError);

private:
    bool BeginLikeLast();
    bool EndLikeLast();
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
    void PrintTrailingWord(uint32_t nOpcode, uint32_t nWord);
    void PutSeparator();

    bool Fail(const char* pReason)
    {
        m_pReason = pReason;
        return false;
    }

    const uint32_t* m_pTokens;
    size_t m_nCount;
    std::string& m_strText;
    CItemWriter m_Writer;
    CLastConversion<uint32_t, char>& m_Last;
    size_t m_nToken = 0;
    const char* m_pReason = nullptr;
    bool m_bFirstOperand = true;
    bool m_bJoiningComment = false; ///< the line before is a comment that would swallow a comment
    uint32_t m_nLastOpcode = 0;
};

void CPrinter::PutSeparator()
{
    m_Writer.Put(m_bFirstOperand ? " " : ", ");
    m_bFirstOperand = false;
}

bool CPrinter::Print(std::string& strError)
{
    bool bOk = BeginLikeLast() || (PrintLeadingMacros() && PrintHeader());
    while (bOk && m_nToken < m_nCount && !EndLikeLast())
    {
        m_Last.Note(m_nToken, m_Writer.Length(), m_bJoiningComment ? 1 : 0);
        bOk = PrintItem();
    }
    m_Writer.Finish();
    if (bOk)
    {
        m_Last.Keep(m_strText.data(), m_strText.size());
        return true;
    }
    m_strText.clear();
    strError = "token " + std::to_string(m_nToken) + ": " + m_pReason;
    return false;
}

/// Takes over the text of the leading items that the last stream has too. \return false if there is none
bool CPrinter::BeginLikeLast()
{
    const auto* pFirst = m_Last.Begin(m_pTokens, m_nCount);
    if (pFirst == nullptr)
    {
        return false;
    }
    m_Writer.Put(std::string_view(m_Last.Made(), pFirst->nOut));
    m_nToken = pFirst->nIn;
    m_bJoiningComment = pFirst->nState != 0;
    return true;
}

/// Takes over the text of all remaining items if the last stream ends with them too.
bool CPrinter::EndLikeLast()
{
    const char* const pRest = m_Last.Rest(m_nToken, m_Writer.Length(), m_bJoiningComment ? 1 : 0);
    if (pRest == nullptr)
    {
        return false;
    }
    m_Writer.Put(std::string_view(pRest, static_cast<size_t>(m_Last.MadeEnd() - pRest)));
    return true;
}

bool CPrinter::PrintLeadingMacros()
{
    while (m_nToken < m_nCount && (m_pTokens[m_nToken] & s_nOpcodeMask) == IL_OP_MACRODEF)
    {
        do
        {
            if (!PrintItem())
            {
                return false;
            }
        } while (m_nLastOpcode != IL_OP_MACROEND);
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
        m_Writer.Put("il_");
        m_Writer.Put(pKind);
        m_Writer.Put('_');
        m_Writer.PutDecimal((nVersion >> 8) & 0xFF);
        m_Writer.Put('_');
        m_Writer.PutDecimal(nVersion & 0xFF);
    }
    else
    {
        m_Writer.Put("il(");
        m_Writer.PutHex(nLanguage);
        m_Writer.Put(", ");
        m_Writer.PutHex(nVersion);
        m_Writer.Put(')');
    }
    m_Writer.Put('\n');
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
    if (layout.nOpcode == IL_OP_COMMENT)
    {
        PrintComment(pItem, layout);
    }
    else
    {
        PrintInstruction(pItem, layout);
        m_bJoiningComment = false;
    }
    m_Writer.Put('\n');
    m_nToken += layout.nWords;
    m_nLastOpcode = layout.nOpcode;
    return true;
}

/// Whether a comment's words are one line of text and nothing else.
bool IsLineComment(const uint32_t* pItem, const SItemLayout& layout, std::string_view& text)
{
    if (pItem[0] != IL_OP_COMMENT)
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
        m_Writer.Put(';');
        m_Writer.Put(text);
        m_bJoiningComment = HoldsJoiningWord(text);
        return;
    }
    m_bJoiningComment = false;
    m_bFirstOperand = true;
    m_Writer.Put("comment");
    PrintControls(pItem, layout, pItem[0] & ~(s_nOpcodeMask | s_nPrimaryBit | s_nSecondaryBit));
    PrintModifierWords(pItem, layout);
    for (size_t i = 1; i < layout.nTrailingWords; ++i)
    {
        PutSeparator();
        m_Writer.PutHex(pItem[layout.nTrailing + i]);
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
        nOffset += m_Writer.PutOperand(pItem + nOffset, layout.bDestination && i == 0);
    }
    if (layout.nOpcode == IL_OP_DCL_TYPELESS_UAV)
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
    case IL_DCL_LITERAL:
        return m_Writer.PutHex(nWord);
    // Readers of the text search for calls by their decimal label.
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    case IL_OP_FUNC:
        return m_Writer.PutDecimal(nWord);
    default:
        return m_Writer.PutNumber(nWord);
    }
}

void CPrinter::PrintMnemonic(const uint32_t* pItem, const SItemLayout& layout)
{
    const SInstructionShape& shape = GetInstructionShape(layout.nOpcode);
    m_Writer.Put(shape.Name());
    uint32_t nBits = pItem[0] & ~s_nOpcodeMask;
    if (shape.bModifierWords)
    {
        nBits &= ~(s_nPrimaryBit | s_nSecondaryBit);
    }
    if (shape.bInstructionModifier)
    {
        PrintInstructionModifier(pItem, layout, nBits);
    }
    // The counts of these opcodes are printed with the words after them.
    if (shape.eTail == ILT_BY_CONTROLS)
    {
        nBits = 0;
    }
    if (GetControlFields(layout.nOpcode).bOperand)
    {
        PrintModifierWords(pItem, layout);
        PutSeparator();
        m_Writer.PutDecimal((nBits >> 16) & s_nControlsMask);
        return;
    }
    PrintControls(pItem, layout, nBits);
    PrintModifierWords(pItem, layout);
    if (layout.bDestination)
    {
        PrintDestinationModifiers(pItem, layout);
    }
    if (layout.nOpcode == IL_DCL_CONST_BUFFER && layout.nPrimary != 0)
    {
        m_Writer.Put("_inline");
        for (size_t i = 0; i < pItem[layout.nPrimary]; ++i)
        {
            PutSeparator();
            m_Writer.PutHex(pItem[layout.nPrimary + 1 + i]);
        }
    }
}

void CPrinter::PrintInstructionModifier(const uint32_t* pItem, const SItemLayout& layout, uint32_t& nBits)
{
    m_Writer.Put('(');
    m_Writer.PutDecimal((pItem[0] >> 16) & s_nControlsMask);
    m_Writer.Put(')');
    nBits &= ~(s_nControlsMask << 16);
    const uint32_t nModifier = layout.nInstructionModifier;
    if (layout.nOpcode == IL_OP_MACROCALL)
    {
        m_Writer.PutSuffix("out", nModifier >> 16);
        m_Writer.PutSuffix("in", nModifier & 0xFFFF);
        return;
    }
    if ((nModifier & s_nOutlineMacroBit) != 0)
    {
        m_Writer.Put("_outline");
    }
    if ((nModifier & ~s_nOutlineMacroBit) != 0)
    {
        m_Writer.PutHexSuffix("mod", nModifier & ~s_nOutlineMacroBit);
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
            m_Writer.PutSuffix(field.name);
        }
        else if (nValue < field.nNames)
        {
            m_Writer.PutSuffix(field.name, field.pNames[nValue]);
        }
        else
        {
            m_Writer.PutSuffix(field.name, nValue);
        }
    }
    if (layout.nOpcode == IL_OP_DCL_TYPELESS_UAV)
    {
        m_Writer.PutSuffix("stride", pItem[layout.nTrailing]);
        m_Writer.PutSuffix("length", pItem[layout.nTrailing + 1]);
    }
    if (nBits != 0)
    {
        m_Writer.PutHexSuffix("ctl", nBits >> 16);
    }
}

void CPrinter::PrintModifierWords(const uint32_t* pItem, const SItemLayout& layout)
{
    if (layout.nPrimary != 0 && layout.nOpcode != IL_DCL_CONST_BUFFER)
    {
        m_Writer.PutHexSuffix("pri", pItem[layout.nPrimary]);
    }
    if (layout.nSecondary != 0)
    {
        m_Writer.PutHexSuffix("sec", pItem[layout.nSecondary]);
    }
}

void CPrinter::PrintDestinationModifiers(const uint32_t* pItem, const SItemLayout& layout)
{
    if ((pItem[layout.nOperands] & s_nOperandModifier) == 0)
    {
        return;
    }
    const uint32_t nModifier = pItem[layout.nOperands + 1];
    if ((nModifier & s_nDestinationReserved) != 0 || (nModifier & ~s_nMaskBits) == 0)
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
            m_Writer.PutSuffix(s_ShiftNames[nValue - 1]);
        }
        else if (field.nWidth == 1)
        {
            m_Writer.PutSuffix(field.name);
        }
        else
        {
            m_Writer.PutSuffix(field.name, nValue);
        }
    }
}

} // namespace

bool DisassembleIL(const uint32_t* pTokens, size_t nCount, std::string& strText, std::string& strError)
{
    strError.clear();
    const auto pLast = s_LastStream.Take();
    return CPrinter(pTokens, nCount, strText, *pLast).Print(strError);
}

} // namespace KestrelPlatform
