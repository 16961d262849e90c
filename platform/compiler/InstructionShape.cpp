#include "platform/compiler/InstructionShape.h"

#include "platform/compiler/NameTable.h"

namespace KestrelPlatform
{
namespace
{

struct SFormat
{
    int nCode;
    bool bDestination;
    uint8_t nSources;
};

// mcall's counts (1009) come from its modifier word.
constexpr SFormat s_Formats[] = {
    {1001, true, 0},  {1002, true, 1},  {1003, true, 2},  {1004, true, 3},  {1005, true, 4},  {1006, true, 5},
    {1007, true, 6},  {1008, false, 0}, {1009, false, 0}, {1010, true, 0},  {1011, true, 1},  {1012, true, 2},
    {1013, true, 3},  {1014, true, 4},  {1015, false, 0}, {1016, false, 0}, {1017, false, 1}, {1018, false, 1},
    {1019, false, 2}, {1020, false, 3}, {1022, false, 0}, {1023, false, 0}, {2001, false, 0}, {2002, true, 0},
    {2003, false, 1}, {2004, false, 0}, {2005, false, 1}, {2006, false, 0}};

struct SKeyword
{
    std::string_view name;
    uint32_t nOpcode;
    int nFormat;
};

// Lookup order: the first row of an opcode is its name and its shape.
constexpr SKeyword s_Keywords[] = {
#define IL_KEYWORD(text, value, format) {text, value, format},
#include "il/ILOpCodes.def"
#define IL_SPECIAL_KEYWORD(text, value, format) {text, value, format},
#include "il/ILOpCodes.def"
};

struct STail
{
    uint32_t nOpcode;
    ETrailing eTrailing;
};

constexpr STail s_Tails[] = {{OpDclResource, TrailingOne},
                             {OpDclTypelessUav, TrailingTwo},
                             {OpDclTypedUav, TrailingOne},
                             {OpComment, TrailingCounted},
                             {OpDclLiteral, TrailingFour},
                             {OpDclMaxThreadPerGroup, TrailingOne},
                             {OpCall, TrailingOne},
                             {OpCallNZ, TrailingOne},
                             {OpCallLogicalZ, TrailingOne},
                             {OpCallLogicalNZ, TrailingOne},
                             {OpFunc, TrailingOne},
                             {OpDclLds, TrailingOne},
                             {OpDclNumThreadPerGroup, TrailingByControls},
                             {OpDclTotalNumThreadGroup, TrailingByControls},
                             {OpCase, TrailingOne}};

// Opcodes whose bits 30 and 31 are part of another layout and bring no word.
constexpr uint32_t s_NoModifierWords[] = {OpDclResource,   225, 231, 232, 260, 261, OpMacroDef, OpDclTypedUav,
                                          OpDclTypelessUav};

struct SRange
{
    uint32_t nFirst;
    uint32_t nLast;
};

constexpr SRange s_NoInstructions[] = {{OpComment, OpComment},
                                       {20, 29},
                                       {118, 128},
                                       {202, 202},
                                       {209, 209},
                                       {212, 215},
                                       {221, 223},
                                       {230, 230},
                                       {258, 259},
                                       {262, 263},
                                       {302, 304},
                                       {309, 315},
                                       {OpMacroDef, OpMacroEnd},
                                       {348, 349},
                                       {352, 352},
                                       {354, 355},
                                       {423, 424}};

constexpr void SetName(SInstructionShape& shape, std::string_view name)
{
    shape.pName = name.data();
    shape.nNameLength = static_cast<uint8_t>(name.size());
}

constexpr void SetFormat(SInstructionShape& shape, int nFormat)
{
    for (const SFormat& format : s_Formats)
    {
        if (format.nCode == nFormat)
        {
            shape.bDestination = format.bDestination;
            shape.nSources = format.nSources;
            return;
        }
    }
}

constexpr void SetNamesAndFormats(SInstructionShapes& table)
{
    for (const SKeyword& keyword : s_Keywords)
    {
        if (keyword.nOpcode == 0 || keyword.nOpcode >= OpLast || table.shapes[keyword.nOpcode].pName != nullptr)
        {
            continue;
        }
        SInstructionShape& shape = table.shapes[keyword.nOpcode];
        SetName(shape, keyword.name);
        SetFormat(shape, keyword.nFormat);
    }
    // The one opcode without a name whose shape is known: a count of words, as its sibling has it.
    SetName(table.shapes[OpDclTotalNumThreadGroup], "op(213)");
}

constexpr SInstructionShapes MakeShapes()
{
    SInstructionShapes table;
    SetNamesAndFormats(table);
    for (uint32_t nOpcode = 0; nOpcode < OpLast; ++nOpcode)
    {
        table.shapes[nOpcode].bModifierWords = true;
        table.shapes[nOpcode].bInstruction = true;
    }
    for (const uint32_t nOpcode : s_NoModifierWords)
    {
        table.shapes[nOpcode].bModifierWords = false;
    }
    for (const STail& tail : s_Tails)
    {
        table.shapes[tail.nOpcode].eTrailing = tail.eTrailing;
    }
    table.shapes[OpMacroDef].bInstructionModifier = true;
    table.shapes[OpMacroCall].bInstructionModifier = true;
    for (const SRange& range : s_NoInstructions)
    {
        for (uint32_t nOpcode = range.nFirst; nOpcode <= range.nLast; ++nOpcode)
        {
            table.shapes[nOpcode].bInstruction = false;
        }
    }
    return table;
}

class COpcodeNames : public CNameTable<11>
{
public:
    constexpr COpcodeNames()
    {
        for (const SKeyword& keyword : s_Keywords)
        {
            if (keyword.nOpcode != 0 && keyword.nOpcode < OpLast)
            {
                Add(keyword.name, static_cast<int>(keyword.nOpcode));
            }
        }
    }
};

constexpr COpcodeNames s_OpcodeNames;

const char* const s_pCutShort = "the stream is cut short";

/// Takes n words from what is left, or fails.
bool Take(size_t nCount, size_t& nUsed, size_t n, const char*& pReason)
{
    if (n > nCount - nUsed)
    {
        pReason = s_pCutShort;
        return false;
    }
    nUsed += n;
    return true;
}

/// Takes an operand from what is left, or fails.
bool TakeOperand(const uint32_t* pTokens, size_t nCount, size_t& nUsed, const char*& pReason)
{
    if (nUsed < nCount && IsPlainOperand(pTokens[nUsed]))
    {
        return Take(nCount, nUsed, (pTokens[nUsed] & s_nOperandModifier) != 0 ? 2 : 1, pReason);
    }
    size_t nWords = 0;
    const bool bOk = MeasureOperand(pTokens + nUsed, nCount - nUsed, nWords, pReason);
    nUsed += nWords;
    return bOk;
}

bool MeasureModifierWords(const uint32_t* pTokens, size_t nCount, const SInstructionShape& shape, SItemLayout& layout,
                          size_t& nUsed, const char*& pReason)
{
    if (!shape.bModifierWords)
    {
        return true;
    }
    if ((pTokens[0] & s_nPrimaryBit) != 0)
    {
        layout.nPrimary = nUsed;
        if (!Take(nCount, nUsed, 1, pReason))
        {
            return false;
        }
        if (layout.nOpcode == OpDclConstBuffer && !Take(nCount, nUsed, pTokens[layout.nPrimary], pReason))
        {
            return false;
        }
    }
    if ((pTokens[0] & s_nSecondaryBit) != 0)
    {
        layout.nSecondary = nUsed;
        return Take(nCount, nUsed, 1, pReason);
    }
    return true;
}

bool MeasureTrailing(const uint32_t* pTokens, size_t nCount, ETrailing eTrailing, size_t& nUsed, const char*& pReason)
{
    switch (eTrailing)
    {
    case TrailingNone:
        return true;
    case TrailingOne:
        return Take(nCount, nUsed, 1, pReason);
    case TrailingTwo:
        return Take(nCount, nUsed, 2, pReason);
    case TrailingFour:
        return Take(nCount, nUsed, 4, pReason);
    case TrailingByControls:
        return Take(nCount, nUsed, (pTokens[0] >> 16) & s_nControlsMask, pReason);
    case TrailingCounted:
        break;
    }
    const size_t nCountWord = nUsed;
    return Take(nCount, nUsed, 1, pReason) && Take(nCount, nUsed, pTokens[nCountWord], pReason);
}

} // namespace

constexpr SInstructionShapes g_InstructionShapes = MakeShapes();

int FindOpcode(std::string_view name)
{
    return s_OpcodeNames.Find(name);
}

bool MeasureOperand(const uint32_t* pTokens, size_t nCount, size_t& nWords, const char*& pReason)
{
    nWords = 0;
    if (!Take(nCount, nWords, 1, pReason))
    {
        return false;
    }
    const uint32_t nToken = pTokens[0];
    const uint32_t nAddressing = (nToken >> s_nOperandRelativeShift) & 3;
    const bool bDimension = (nToken & s_nOperandDimension) != 0;
    size_t nFixed = ((nToken & s_nOperandModifier) != 0 ? 1 : 0) + ((nToken & s_nOperandImmediate) != 0 ? 1 : 0) +
                    ((nToken & s_nOperandExtended) != 0 ? 1 : 0);
    if (nAddressing == AddressRegister)
    {
        if (bDimension)
        {
            pReason = "a register has both a run-time index and a dimension";
            return false;
        }
        const size_t nIndexToken = 1 + ((nToken & s_nOperandModifier) != 0 ? 1 : 0);
        if (nIndexToken >= nCount)
        {
            pReason = s_pCutShort;
            return false;
        }
        nFixed += 1 + ((pTokens[nIndexToken] & s_nOperandModifier) != 0 ? 1 : 0);
    }
    else if (nAddressing == AddressRelative || (nAddressing == AddressAbsolute && bDimension))
    {
        nFixed += 1;
    }
    return Take(nCount, nWords, nFixed, pReason);
}

bool MeasureItem(const uint32_t* pTokens, size_t nCount, SItemLayout& layout, const char*& pReason)
{
    layout = SItemLayout();
    size_t nUsed = 0;
    if (!Take(nCount, nUsed, 1, pReason))
    {
        return false;
    }
    const uint32_t nToken = pTokens[0];
    layout.nOpcode = nToken & s_nOpcodeMask;
    const SInstructionShape& shape = GetInstructionShape(layout.nOpcode);
    if (shape.pName == nullptr)
    {
        pReason = "unknown opcode";
        return false;
    }
    if (shape.bInstructionModifier)
    {
        if (!Take(nCount, nUsed, 1, pReason))
        {
            return false;
        }
        layout.nInstructionModifier = pTokens[1];
    }
    if (!MeasureModifierWords(pTokens, nCount, shape, layout, nUsed, pReason))
    {
        return false;
    }
    layout.nOperands = nUsed;
    layout.bDestination = HasDestination(nToken, layout.nInstructionModifier);
    layout.nSources = GetSourceCount(nToken, layout.nInstructionModifier);
    const uint32_t nOperands = layout.nSources + (layout.bDestination ? 1 : 0);
    for (uint32_t i = 0; i < nOperands; ++i)
    {
        if (!TakeOperand(pTokens, nCount, nUsed, pReason))
        {
            return false;
        }
    }
    layout.nTrailing = nUsed;
    if (!MeasureTrailing(pTokens, nCount, shape.eTrailing, nUsed, pReason))
    {
        return false;
    }
    layout.nTrailingWords = nUsed - layout.nTrailing;
    layout.nWords = nUsed;
    return true;
}

} // namespace KestrelPlatform
