#include "platform/compiler/Assembler.h"

#include "platform/compiler/ControlFields.h"
#include "platform/compiler/LastConversion.h"
#include "platform/compiler/LineScanner.h"
#include "platform/compiler/MnemonicReader.h"
#include "platform/compiler/OperandReader.h"
#include "platform/compiler/StreamHeader.h"
#include "platform/il/InstructionShape.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace KestrelPlatform
{
namespace
{

/// A little less than in a usual text.
const size_t s_nCharactersPerWord = 3;

/// The text that was assembled last. What a line becomes depends on the line, and on whether the header or the start of
/// a macro stands before it.
CLastConversionKeeper<char, uint32_t> s_LastText;

/// Assembles one text. Each object serves one call.
class CAssembler
{
public:
    CAssembler(std::vector<uint32_t>& vTokens, SDiagnostic& diag, CLastConversion<char, uint32_t>& last)
        : m_vTokens(vTokens), m_Diag(diag), m_Last(last)
    {
    }

    bool Assemble(std::string_view text, std::vector<uint32_t>* pvLines);

private:
    size_t BeginLikeLast(std::string_view text);
    bool EndLikeLast(size_t nPosition);
    uint32_t GetState() const { return (m_bHeader ? 1u : 0u) | (m_bMacro ? 2u : 0u); }
    void TellLines(std::vector<uint32_t>& vLines) const;
    bool AssembleLine(std::string_view line);
    bool AssembleItem(CLineScanner& scanner);
    bool AssembleHeader(CLineScanner& scanner);
    bool AssembleGenericHeader(CLineScanner& scanner);
    bool AssembleInstruction(CLineScanner& scanner);
    bool AssembleControlsOperand(CLineScanner& scanner);
    bool AssembleInlineTable(CLineScanner& scanner);
    bool AssembleOperands(CLineScanner& scanner, const SMnemonic& mnemonic);
    bool AssembleTrailing(CLineScanner& scanner, const SMnemonic& mnemonic);
    bool AssembleWords(CLineScanner& scanner, size_t nWords);
    bool AssembleWordList(CLineScanner& scanner, size_t& nWords);
    void AppendComment(std::string_view text);
    bool Separate(CLineScanner& scanner);
    bool Finish();

    std::vector<uint32_t>& m_vTokens;
    SDiagnostic& m_Diag;
    CLastConversion<char, uint32_t>& m_Last;
    bool m_bHeader = false;
    bool m_bMacro = false; ///< in a macro before the opening line
    bool m_bFirstOperand = true;
    size_t m_nItem = 0; ///< index of the current item's opcode token
};

bool CAssembler::Assemble(std::string_view text, std::vector<uint32_t>* pvLines)
{
    m_vTokens.reserve(text.size() / s_nCharactersPerWord);
    size_t nPosition = BeginLikeLast(text);
    while (nPosition != text.size() && !EndLikeLast(nPosition))
    {
        m_Last.Note(nPosition, m_vTokens.size(), GetState());
        const size_t nBreak = std::min(text.find('\n', nPosition), text.size());
        std::string_view line = text.substr(nPosition, nBreak - nPosition);
        if (!line.empty() && line.back() == '\r')
        {
            line.remove_suffix(1);
        }
        if (!AssembleLine(line))
        {
            return false;
        }
        nPosition = std::min(nBreak + 1, text.size());
    }
    if (!Finish())
    {
        return false;
    }
    if (pvLines != nullptr)
    {
        TellLines(*pvLines);
    }
    m_Last.Keep(m_vTokens.data(), m_vTokens.size());
    return true;
}

/// Takes over the tokens of the leading lines that the last text has too. Gives where the other lines begin.
size_t CAssembler::BeginLikeLast(std::string_view text)
{
    const auto* pFirst = m_Last.Begin(text.data(), text.size());
    if (pFirst == nullptr)
    {
        return 0;
    }
    m_vTokens.assign(m_Last.Made(), m_Last.Made() + pFirst->nOut);
    m_bHeader = (pFirst->nState & 1) != 0;
    m_bMacro = (pFirst->nState & 2) != 0;
    return pFirst->nIn;
}

/// Takes over the tokens of all remaining lines if the last text ends with them too.
bool CAssembler::EndLikeLast(size_t nPosition)
{
    const uint32_t* const pRest = m_Last.Rest(nPosition, m_vTokens.size(), GetState());
    if (pRest == nullptr)
    {
        return false;
    }
    m_vTokens.insert(m_vTokens.end(), pRest, m_Last.MadeEnd());
    // Only complete texts are kept, so this one has its header.
    m_bHeader = true;
    return true;
}

/// The lines on which the instructions stand, counted from 1.
void CAssembler::TellLines(std::vector<uint32_t>& vLines) const
{
    const auto& vPieces = m_Last.Pieces();
    vLines.reserve(vPieces.size());
    for (size_t n = 0; n < vPieces.size(); ++n)
    {
        if (vPieces[n].bMarked)
        {
            vLines.push_back(static_cast<uint32_t>(n + 1));
        }
    }
}

bool CAssembler::Finish()
{
    if (m_bHeader)
    {
        return true;
    }
    m_Diag.nLine = static_cast<uint32_t>(m_Last.Pieces().size()) + 1;
    m_Diag.nColumn = 1;
    m_Diag.strMessage = m_bMacro ? "expected 'mend', got the end of the text"
                                 : "expected the opening line 'il_cs_2_0', got the end of the text";
    return false;
}

bool CAssembler::AssembleLine(std::string_view line)
{
    CLineScanner scanner(line);
    scanner.SkipBlanks();
    if (scanner.AtEnd())
    {
        return true;
    }
    if ((scanner.Peek() == ';' || AssembleItem(scanner)) && (scanner.SkipBlanks(), true))
    {
        if (scanner.Accept(';'))
        {
            AppendComment(scanner.Rest());
            return true;
        }
        if (scanner.AtEnd())
        {
            return true;
        }
        scanner.Fail(m_bFirstOperand ? "the end of the line" : "',' or the end of the line");
    }
    m_Diag.nLine = static_cast<uint32_t>(m_Last.Pieces().size());
    m_Diag.nColumn = scanner.FaultColumn();
    m_Diag.strMessage = scanner.FaultMessage();
    return false;
}

void CAssembler::AppendComment(std::string_view text)
{
    // Before the opening line a stream may hold macros only.
    if (!m_bHeader && !m_bMacro)
    {
        return;
    }
    const size_t nWords = text.size() / sizeof(uint32_t) + 1;
    m_vTokens.push_back(IL_OP_COMMENT);
    m_vTokens.push_back(static_cast<uint32_t>(nWords));
    const size_t nText = m_vTokens.size();
    m_vTokens.resize(nText + nWords, 0);
    std::memcpy(m_vTokens.data() + nText, text.data(), text.size());
}

bool CAssembler::AssembleItem(CLineScanner& scanner)
{
    m_bFirstOperand = true;
    if (!m_bHeader && !m_bMacro && scanner.Rest().substr(0, 2) == "il")
    {
        return AssembleHeader(scanner);
    }
    return AssembleInstruction(scanner);
}

bool CAssembler::AssembleHeader(CLineScanner& scanner)
{
    const char* pStart = scanner.Position();
    const std::string_view word = scanner.TakeWord(true);
    if (word == "il" && scanner.Peek() == '(')
    {
        return AssembleGenericHeader(scanner);
    }
    for (size_t i = 0; i < s_nStreamKinds; ++i)
    {
        const std::string strPrefix = std::string("il_") + s_StreamKinds[i] + "_";
        if (word.substr(0, strPrefix.size()) != strPrefix)
        {
            continue;
        }
        scanner.SetPosition(pStart + strPrefix.size());
        uint32_t nMajor = 0;
        uint32_t nMinor = 0;
        if (!scanner.TakeDigits(nMajor, 0xFF, "a major version") || !(scanner.Accept('_') || scanner.Fail("'_'")) ||
            !scanner.TakeDigits(nMinor, 0xFF, "a minor version"))
        {
            return false;
        }
        m_vTokens.push_back(0);
        m_vTokens.push_back(static_cast<uint32_t>(i << 16) | nMajor << 8 | nMinor);
        m_bHeader = true;
        return true;
    }
    return scanner.FailAt(pStart, "the opening line 'il_cs_2_0'");
}

bool CAssembler::AssembleGenericHeader(CLineScanner& scanner)
{
    uint32_t nLanguage = 0;
    uint32_t nVersion = 0;
    const char* pStart = scanner.Position();
    if (!scanner.Expect('(') || !scanner.TakeNumber(nLanguage) || !scanner.Expect(',') ||
        !scanner.TakeNumber(nVersion) || !scanner.Expect(')'))
    {
        return false;
    }
    if ((nLanguage & s_nOpcodeMask) == IL_OP_MACRODEF)
    {
        return scanner.Refuse(pStart, "a language word can't look like a macro");
    }
    m_vTokens.push_back(nLanguage);
    m_vTokens.push_back(nVersion);
    m_bHeader = true;
    return true;
}

bool CAssembler::Separate(CLineScanner& scanner)
{
    if (!m_bFirstOperand)
    {
        return scanner.Expect(',');
    }
    m_bFirstOperand = false;
    scanner.SkipBlanks();
    return true;
}

bool CAssembler::AssembleInstruction(CLineScanner& scanner)
{
    if (!m_bHeader && !m_bMacro && scanner.Rest().substr(0, 4) != GetInstructionShape(IL_OP_MACRODEF).pName)
    {
        return scanner.Fail("the opening line 'il_cs_2_0'");
    }
    SMnemonic mnemonic;
    if (!ReadMnemonic(scanner, mnemonic))
    {
        return false;
    }
    const SInstructionShape& shape = GetInstructionShape(mnemonic.nOpcode);
    m_nItem = m_vTokens.size();
    m_vTokens.push_back(mnemonic.nToken);
    if (shape.bInstructionModifier)
    {
        m_vTokens.push_back(mnemonic.nInstructionModifier);
    }
    if (mnemonic.bPrimary)
    {
        m_vTokens.push_back(mnemonic.nPrimary);
    }
    if (mnemonic.bInline && !AssembleInlineTable(scanner))
    {
        return false;
    }
    if (mnemonic.bSecondary)
    {
        m_vTokens.push_back(mnemonic.nSecondary);
    }
    if (GetControlFields(mnemonic.nOpcode).bOperand ? !AssembleControlsOperand(scanner)
                                                    : !AssembleOperands(scanner, mnemonic))
    {
        return false;
    }
    m_bMacro = !m_bHeader && mnemonic.nOpcode != IL_OP_MACROEND;
    if (IsInstructionOpcode(mnemonic.nOpcode))
    {
        m_Last.Mark();
    }
    return true;
}

bool CAssembler::AssembleInlineTable(CLineScanner& scanner)
{
    const size_t nCount = m_vTokens.size();
    m_vTokens.push_back(0);
    size_t nWords = 0;
    if (!AssembleWordList(scanner, nWords))
    {
        return false;
    }
    m_vTokens[nCount] = static_cast<uint32_t>(nWords);
    return true;
}

bool CAssembler::AssembleControlsOperand(CLineScanner& scanner)
{
    uint32_t nControls = 0;
    if (!Separate(scanner) || !scanner.TakeNumber(nControls, s_nControlsMask, "the number"))
    {
        return false;
    }
    m_vTokens[m_nItem] |= nControls << 16;
    return true;
}

bool CAssembler::AssembleOperands(CLineScanner& scanner, const SMnemonic& mnemonic)
{
    if (HasDestination(mnemonic.nToken, mnemonic.nInstructionModifier))
    {
        if (!Separate(scanner) ||
            !ReadDestination(scanner, mnemonic.bDestinationModifiers, mnemonic.nDestinationModifiers, m_vTokens))
        {
            return false;
        }
    }
    else if (mnemonic.bDestinationModifiers)
    {
        return scanner.Refuse(mnemonic.pStart, "modifiers of a destination, but no destination");
    }
    const uint32_t nSources = GetSourceCount(mnemonic.nToken, mnemonic.nInstructionModifier);
    for (uint32_t i = 0; i < nSources; ++i)
    {
        if (!Separate(scanner) || !ReadSource(scanner, m_vTokens))
        {
            return false;
        }
    }
    return AssembleTrailing(scanner, mnemonic);
}

bool CAssembler::AssembleTrailing(CLineScanner& scanner, const SMnemonic& mnemonic)
{
    size_t nWords = 0;
    switch (GetInstructionShape(mnemonic.nOpcode).eTail)
    {
    case ILT_NONE:
        return true;
    case ILT_ONE:
        return AssembleWords(scanner, 1);
    case ILT_TWO:
        m_vTokens.push_back(mnemonic.nStride);
        m_vTokens.push_back(mnemonic.nLength);
        return true;
    case ILT_FOUR:
        return AssembleWords(scanner, 4);
    case ILT_BY_CONTROLS:
        if (!AssembleWordList(scanner, nWords))
        {
            return false;
        }
        if (nWords > s_nControlsMask)
        {
            return scanner.Refuse(mnemonic.pStart, "too many numbers");
        }
        m_vTokens[m_nItem] |= static_cast<uint32_t>(nWords) << 16;
        return true;
    case ILT_COUNTED:
        break;
    }
    const size_t nCount = m_vTokens.size();
    m_vTokens.push_back(0);
    if (!AssembleWordList(scanner, nWords))
    {
        return false;
    }
    m_vTokens[nCount] = static_cast<uint32_t>(nWords);
    return true;
}

bool CAssembler::AssembleWords(CLineScanner& scanner, size_t nWords)
{
    for (size_t i = 0; i < nWords; ++i)
    {
        uint32_t nWord = 0;
        if (!Separate(scanner) || !scanner.TakeNumber(nWord))
        {
            return false;
        }
        m_vTokens.push_back(nWord);
    }
    return true;
}

/// Reads numbers up to the end of the line; there may be none.
bool CAssembler::AssembleWordList(CLineScanner& scanner, size_t& nWords)
{
    nWords = 0;
    scanner.SkipBlanks();
    while (!scanner.AtEnd() && scanner.Peek() != ';')
    {
        if (!AssembleWords(scanner, 1))
        {
            return false;
        }
        ++nWords;
        scanner.SkipBlanks();
    }
    return true;
}

} // namespace

std::string SDiagnostic::ToString() const
{
    if (nLine == 0)
    {
        return strMessage;
    }
    return "line " + std::to_string(nLine) + ", column " + std::to_string(nColumn) + ": " + strMessage;
}

bool AssembleIL(const char* pText, size_t nSize, std::vector<uint32_t>& vTokens, SDiagnostic& diag,
                std::vector<uint32_t>* pvLines)
{
    vTokens.clear();
    diag = SDiagnostic();
    if (pvLines != nullptr)
    {
        pvLines->clear();
    }
    const auto pLast = s_LastText.Take();
    const bool bOk = CAssembler(vTokens, diag, *pLast).Assemble(std::string_view(pText, nSize), pvLines);
    if (!bOk)
    {
        vTokens.clear();
    }
    return bOk;
}

} // namespace KestrelPlatform
