#include "platform/compiler/MnemonicReader.h"

#include "platform/compiler/ControlFields.h"
#include "platform/compiler/Modifiers.h"
#include "platform/compiler/StreamHeader.h"
#include "platform/il/InstructionShape.h"

#include <string>

namespace KestrelPlatform
{
namespace
{

const uint32_t s_nAnyWord = 0xFFFFFFFFu;

class CMnemonicReader
{
public:
    CMnemonicReader(CLineScanner& scanner, SMnemonic& mnemonic) : m_Scanner(scanner), m_Mnemonic(mnemonic) {}

    bool Read();

private:
    bool ReadOpcode();
    bool ReadGenericOpcode();
    bool ReadLabel();
    bool ReadSuffix();
    bool ReadControlField(const char* pStart, const SControlField& field);
    bool ReadEnum(const SControlField& field, uint32_t& nValue);
    bool ReadBracketed(uint32_t& nValue, uint32_t nMaximum, std::string_view what);
    bool SetWord(const char* pStart, bool& bPresent, uint32_t& nWord, uint32_t nBit);

    bool ReadDestinationSuffix(std::string_view name, bool& bKnown);
    bool ReadInstructionModifierSuffix(std::string_view name, bool& bKnown);
    bool ReadWordSuffix(const char* pStart, std::string_view name, bool& bKnown);
    bool ReadFieldSuffix(const char* pStart, std::string_view name, bool& bKnown);

    CLineScanner& m_Scanner;
    SMnemonic& m_Mnemonic;
    uint32_t m_nGivenBits = 0;
};

bool CMnemonicReader::ReadBracketed(uint32_t& nValue, uint32_t nMaximum, std::string_view what)
{
    if (!m_Scanner.Accept('('))
    {
        return m_Scanner.Fail("'(' and a number");
    }
    m_Scanner.SkipBlanks();
    return m_Scanner.TakeNumber(nValue, nMaximum, what) && (m_Scanner.SkipBlanks(), true) &&
           (m_Scanner.Accept(')') || m_Scanner.Fail("')'"));
}

bool CMnemonicReader::ReadGenericOpcode()
{
    const char* pStart = m_Scanner.Position();
    if (!ReadBracketed(m_Mnemonic.nOpcode, IL_OP_LAST - 1, "an opcode"))
    {
        return false;
    }
    return GetInstructionShape(m_Mnemonic.nOpcode).pName != nullptr || m_Scanner.FailAt(pStart, "a known opcode");
}

/// Takes the longest known name; the rest of the word are suffixes.
bool CMnemonicReader::ReadOpcode()
{
    m_Mnemonic.pStart = m_Scanner.Position();
    const std::string_view word = m_Scanner.TakeWord(true);
    std::string_view name = word;
    while (!name.empty())
    {
        const int nOpcode = FindOpcode(name);
        if (nOpcode >= 0)
        {
            m_Mnemonic.nOpcode = static_cast<uint32_t>(nOpcode);
            m_Scanner.SetPosition(name.data() + name.size());
            return true;
        }
        const size_t nCut = name.rfind('_');
        name = name.substr(0, nCut == std::string_view::npos ? 0 : nCut);
    }
    if (word == "op")
    {
        return ReadGenericOpcode();
    }
    return m_Scanner.FailAt(m_Mnemonic.pStart, "an instruction");
}

bool CMnemonicReader::ReadLabel()
{
    uint32_t nLabel = 0;
    if (!ReadBracketed(nLabel, s_nControlsMask, "a macro label"))
    {
        return false;
    }
    m_Mnemonic.nToken |= nLabel << 16;
    return true;
}

bool CMnemonicReader::ReadEnum(const SControlField& field, uint32_t& nValue)
{
    if (!m_Scanner.Accept('('))
    {
        return m_Scanner.Fail("'('");
    }
    const char* pStart = m_Scanner.Position();
    const int nNamed = FindFieldValue(field, m_Scanner.TakeWord(false));
    if (nNamed >= 0)
    {
        nValue = static_cast<uint32_t>(nNamed);
    }
    else
    {
        m_Scanner.SetPosition(pStart);
        const uint32_t nMaximum = field.Mask() >> field.nShift;
        if (!m_Scanner.TakeNumber(nValue, nMaximum, field.name))
        {
            return false;
        }
    }
    return m_Scanner.Accept(')') || m_Scanner.Fail("')'");
}

bool CMnemonicReader::ReadControlField(const char* pStart, const SControlField& field)
{
    if ((m_nGivenBits & field.Mask()) != 0)
    {
        return m_Scanner.Refuse(pStart, std::string(field.name) + " sets bits that are given already");
    }
    m_nGivenBits |= field.Mask();
    uint32_t nValue = field.nValue;
    if (field.nNames != 0)
    {
        if (!ReadEnum(field, nValue))
        {
            return false;
        }
    }
    else if (field.eForm != FieldValue && !ReadBracketed(nValue, field.Mask() >> field.nShift, field.name))
    {
        return false;
    }
    m_Mnemonic.nToken |= nValue << field.nShift;
    return true;
}

bool CMnemonicReader::ReadFieldSuffix(const char* pStart, std::string_view name, bool& bKnown)
{
    const bool bModifierWords = GetInstructionShape(m_Mnemonic.nOpcode).bModifierWords;
    for (const SControlField& field : GetControlFields(m_Mnemonic.nOpcode))
    {
        // If the top bits say that words follow, they can't be part of a named field.
        const bool bUsable = !bModifierWords || (field.Mask() & (s_nPrimaryBit | s_nSecondaryBit)) == 0;
        if (bUsable && name == field.name)
        {
            bKnown = true;
            return ReadControlField(pStart, field);
        }
    }
    return true;
}

bool CMnemonicReader::ReadDestinationSuffix(std::string_view name, bool& bKnown)
{
    for (uint32_t i = 0; i < s_nShiftNames; ++i)
    {
        if (name == s_ShiftNames[i])
        {
            bKnown = true;
            m_Mnemonic.bDestinationModifiers = true;
            m_Mnemonic.nDestinationModifiers |= (i + 1) << s_nShiftScaleShift;
            return true;
        }
    }
    for (const SModifierField& field : s_DestinationFields)
    {
        if (name != field.name)
        {
            continue;
        }
        bKnown = true;
        uint32_t nValue = 1;
        if (field.nWidth > 1 && !ReadBracketed(nValue, field.Mask() >> field.nShift, field.name))
        {
            return false;
        }
        m_Mnemonic.bDestinationModifiers = true;
        m_Mnemonic.nDestinationModifiers |= nValue << field.nShift;
        return true;
    }
    return true;
}

bool CMnemonicReader::ReadInstructionModifierSuffix(std::string_view name, bool& bKnown)
{
    const bool bCall = m_Mnemonic.nOpcode == IL_OP_MACROCALL;
    uint32_t nValue = 0;
    bKnown = true;
    if (bCall && (name == "out" || name == "in"))
    {
        if (!ReadBracketed(nValue, 0xFFFF, "a count"))
        {
            return false;
        }
        m_Mnemonic.nInstructionModifier |= name == "out" ? nValue << 16 : nValue;
        return true;
    }
    if (!bCall && name == "outline")
    {
        m_Mnemonic.nInstructionModifier |= s_nOutlineMacroBit;
        return true;
    }
    if (!bCall && name == "mod")
    {
        if (!ReadBracketed(nValue, s_nAnyWord, "a word"))
        {
            return false;
        }
        m_Mnemonic.nInstructionModifier |= nValue;
        return true;
    }
    bKnown = false;
    return true;
}

bool CMnemonicReader::SetWord(const char* pStart, bool& bPresent, uint32_t& nWord, uint32_t nBit)
{
    if (bPresent)
    {
        return m_Scanner.Refuse(pStart, "the modifier word is given already");
    }
    bPresent = true;
    m_Mnemonic.nToken |= nBit;
    return ReadBracketed(nWord, s_nAnyWord, "a word");
}

bool CMnemonicReader::ReadWordSuffix(const char* pStart, std::string_view name, bool& bKnown)
{
    const SInstructionShape& shape = GetInstructionShape(m_Mnemonic.nOpcode);
    bKnown = true;
    if (name == "ctl")
    {
        uint32_t nBits = 0;
        if (!ReadBracketed(nBits, shape.bModifierWords ? s_nControlsMask : 0xFFFF, "the value of ctl"))
        {
            return false;
        }
        m_Mnemonic.nToken |= nBits << 16;
        return true;
    }
    if (shape.bModifierWords && name == "sec")
    {
        return SetWord(pStart, m_Mnemonic.bSecondary, m_Mnemonic.nSecondary, s_nSecondaryBit);
    }
    // The primary word of dcl_cb is its table's count.
    if (shape.bModifierWords && name == "pri" && m_Mnemonic.nOpcode != IL_DCL_CONST_BUFFER)
    {
        return SetWord(pStart, m_Mnemonic.bPrimary, m_Mnemonic.nPrimary, s_nPrimaryBit);
    }
    if (m_Mnemonic.nOpcode == IL_DCL_CONST_BUFFER && name == "inline")
    {
        m_Mnemonic.bInline = true;
        m_Mnemonic.nToken |= s_nPrimaryBit;
        return true;
    }
    if (m_Mnemonic.nOpcode == IL_OP_DCL_TYPELESS_UAV && (name == "stride" || name == "length"))
    {
        return ReadBracketed(name == "stride" ? m_Mnemonic.nStride : m_Mnemonic.nLength, s_nAnyWord, "a word");
    }
    bKnown = false;
    return true;
}

bool CMnemonicReader::ReadSuffix()
{
    m_Scanner.Accept('_');
    const char* pStart = m_Scanner.Position();
    const std::string_view name = m_Scanner.TakeWord(false);
    bool bKnown = false;
    bool bOk = ReadFieldSuffix(pStart, name, bKnown);
    if (bOk && !bKnown)
    {
        bOk = ReadWordSuffix(pStart, name, bKnown);
    }
    if (bOk && !bKnown && GetInstructionShape(m_Mnemonic.nOpcode).bInstructionModifier)
    {
        bOk = ReadInstructionModifierSuffix(name, bKnown);
    }
    if (bOk && !bKnown && HasDestination(m_Mnemonic.nToken, s_nAnyWord))
    {
        bOk = ReadDestinationSuffix(name, bKnown);
    }
    return bOk && (bKnown || m_Scanner.FailAt(pStart, std::string("a suffix of ") +
                                                          GetInstructionShape(m_Mnemonic.nOpcode).pName));
}

bool CMnemonicReader::Read()
{
    if (!ReadOpcode())
    {
        return false;
    }
    m_Mnemonic.nToken = m_Mnemonic.nOpcode;
    if (GetInstructionShape(m_Mnemonic.nOpcode).bInstructionModifier && !ReadLabel())
    {
        return false;
    }
    while (m_Scanner.Peek() == '_')
    {
        if (!ReadSuffix())
        {
            return false;
        }
    }
    const char c = m_Scanner.Peek();
    return m_Scanner.AtEnd() || c == ' ' || c == '\t' || c == ';' || m_Scanner.Fail("a blank after the instruction");
}

} // namespace

bool ReadMnemonic(CLineScanner& scanner, SMnemonic& mnemonic)
{
    return CMnemonicReader(scanner, mnemonic).Read();
}

} // namespace KestrelPlatform
