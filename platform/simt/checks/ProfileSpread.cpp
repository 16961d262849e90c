#include "platform/simt/Program.h"
#include "platform/simt/checks/Profile.h"

namespace KestrelPlatform
{

namespace
{

/// How an instruction changes who is active.
enum EStep
{
    Stays,    ///< not at all
    Branches, ///< by its condition: the recorded ones go on
    Leaves,   ///< none goes on
    Joins     ///< the recorded ones come to it and go on
};

EStep StepOf(const SItem& item)
{
    switch (item.eOpCode)
    {
    case IL_OP_IFC:
    case IL_OP_IFNZ:
    case IL_OP_IF_LOGICALZ:
    case IL_OP_IF_LOGICALNZ:
        return Branches;
    case IL_OP_SWITCH:
        return Leaves;
    case IL_OP_ELSE:
    case IL_OP_ENDIF:
    case IL_OP_WHILE:
    case IL_OP_ENDLOOP:
    case IL_OP_CASE:
    case IL_OP_DEFAULT:
    case IL_OP_ENDSWITCH:
    case IL_OP_FUNC:
        return Joins;
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    case IL_OP_MACROCALL:
    case IL_OP_ENDFUNC:
    case IL_OP_ENDMAIN:
    case IL_OP_END:
        return Stays; // those that call come back
    default:
        break;
    }
    if (GetOpCodeClass(item.eOpCode) != ClassFlow)
    {
        return Stays;
    }
    return item.nSources != 0 ? Branches : Leaves;
}

/// Works out who is active at each of a body's instructions.
/// \param here  who comes to the body
void SpreadBody(const SDecodedStream& stream, const SBody& body, SPresence here,
                const std::vector<SProfileEntry>& vEntries, std::vector<SPlatformProfile>& vRows)
{
    for (const uint32_t nItem : body.vItems)
    {
        const SItem& item = stream.vItems[nItem];
        if (item.nInstruction == SItem::NoInstruction)
        {
            continue;
        }
        const SProfileEntry entry = item.nInstruction < vEntries.size() ? vEntries[item.nInstruction] : SProfileEntry();
        const EStep eStep = StepOf(item);
        here = eStep == Joins ? entry.after : here;
        const SPresence next = eStep == Stays ? here : eStep == Leaves ? SPresence() : entry.after;
        SPlatformProfile& row = vRows[item.nInstruction];
        row.nItems = here.nItems;
        row.nWaves = here.nWaves;
        row.nLanes = here.nLanes;
        row.nGoOn = next.nItems;
        row.nBranch = eStep == Branches;
        row.nEntries = entry.nEntries;
        row.nLeast = entry.nMost != 0 ? entry.nLeast : 0;
        row.nMost = entry.nMost;
        for (uint32_t n = 0; n < 3; ++n)
        {
            row.nLoaded[n] = entry.nLoaded[n];
            row.nStored[n] = entry.nStored[n];
        }
        row.nAccesses = entry.nAccesses;
        row.nLines = entry.nLines;
        here = next;
    }
}

} // namespace

std::vector<SPlatformProfile> CProfileTotals::Spread(const CProgram& program) const
{
    SDecodedStream stream;
    SStructure structure;
    SDecodeError error;
    const std::vector<uint32_t>& vTokens = program.GetTokens();
    if (!DecodeStream(vTokens.data(), vTokens.size(), stream, error) || !BuildStructure(stream, structure, error))
    {
        return {};
    }
    std::vector<SPlatformProfile> vRows(stream.nInstructions, SPlatformProfile{});
    for (size_t n = 0; n < structure.vBodies.size(); ++n)
    {
        SpreadBody(stream, structure.vBodies[n], n < m_vBodies.size() ? m_vBodies[n] : SPresence(), m_vEntries, vRows);
    }
    return vRows;
}

} // namespace KestrelPlatform
