#include "platform/simt/OpCodes.h"

#include <vector>

namespace KestrelPlatform
{

namespace
{

const SOpCodeRange s_Declarations[] = {{20, 29},   {118, 128}, {202, 202}, {209, 209}, {212, 215},
                                       {221, 223}, {230, 230}, {258, 259}, {262, 263}, {302, 304},
                                       {309, 315}, {348, 349}, {352, 352}, {354, 355}, {423, 424}};

bool IsDeclaration(uint32_t nOpCode)
{
    for (const SOpCodeRange& range : s_Declarations)
    {
        if (range.Has(nOpCode))
            return true;
    }
    return false;
}

bool HasOwnUpperBits(uint32_t nOpCode)
{
    switch (nOpCode)
    {
    case IL_DCL_RESOURCE:
    case IL_OP_UAV_RAW_LOAD:
    case IL_OP_UAV_ARENA_LOAD:
    case IL_OP_UAV_ARENA_STORE:
    case IL_OP_SRV_RAW_LOAD:
    case IL_OP_SRV_STRUCT_LOAD:
    case IL_OP_MACRODEF:
    case IL_OP_DCL_TYPED_UAV:
    case IL_OP_DCL_TYPELESS_UAV:
        return true;
    default:
        return false;
    }
}

uint32_t TrailingWords(uint32_t nOpCode)
{
    switch (nOpCode)
    {
    case IL_DCL_RESOURCE:
    case IL_OP_DCL_TYPED_UAV:
    case IL_DCL_MAX_THREAD_PER_GROUP:
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    case IL_OP_FUNC:
    case IL_DCL_LDS:
    case IL_OP_CASE:
        return 1;
    case IL_OP_DCL_TYPELESS_UAV:
        return 2;
    case IL_DCL_LITERAL:
        return 4;
    default:
        return 0;
    }
}

struct SFormat
{
    uint32_t nCode;
    bool bDestination;
    uint32_t nSources;
};

const SFormat s_Formats[] = {{1001, true, 0},  {1002, true, 1},  {1003, true, 2},  {1004, true, 3},  {1005, true, 4},
                             {1006, true, 5},  {1007, true, 6},  {1008, false, 0}, {1010, true, 0},  {1011, true, 1},
                             {1012, true, 2},  {1013, true, 3},  {1014, true, 4},  {1015, false, 0}, {1016, false, 0},
                             {1017, false, 1}, {1018, false, 1}, {1019, false, 2}, {1020, false, 3}, {1022, false, 0},
                             {1023, false, 0}, {2001, false, 0}, {2002, true, 0},  {2003, false, 1}, {2004, false, 0},
                             {2005, false, 1}, {2006, false, 0}};

void Fill(SOpCodeShape& shape, const char* pszName, uint32_t nOpCode, uint32_t nFormat)
{
    if (shape.pszName)
        return;
    shape.pszName = pszName;
    shape.nFormat = nFormat;
    for (const SFormat& format : s_Formats)
    {
        if (format.nCode != nFormat)
            continue;
        shape.bDestination = format.bDestination;
        shape.nSources = format.nSources;
    }
    const bool bMarker = nOpCode == IL_OP_COMMENT || nOpCode == IL_OP_MACRODEF || nOpCode == IL_OP_MACROEND;
    shape.bInstruction = !bMarker && !IsDeclaration(nOpCode);
    shape.bStandardModifiers = !HasOwnUpperBits(nOpCode);
    shape.bInstructionModifier = nOpCode == IL_OP_MACRODEF || nOpCode == IL_OP_MACROCALL;
    shape.nTrailingWords = TrailingWords(nOpCode);
}

std::vector<SOpCodeShape> MakeShapes()
{
    std::vector<SOpCodeShape> vShapes(IL_OP_LAST);
#define IL_KEYWORD(text, value, format) Fill(vShapes[value], text, value, format);
#define IL_SPECIAL_KEYWORD(text, value, format) Fill(vShapes[value], text, value, format);
#include "il/ILOpCodes.def"
    vShapes[IL_OP_UNKNOWN] = SOpCodeShape();
    return vShapes;
}

} // namespace

const SOpCodeShape& GetOpCodeShape(uint32_t nOpCode)
{
    static const std::vector<SOpCodeShape> s_vShapes = MakeShapes();
    return s_vShapes[nOpCode < s_vShapes.size() ? nOpCode : 0];
}

} // namespace KestrelPlatform
