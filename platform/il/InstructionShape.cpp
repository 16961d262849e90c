#include "platform/il/InstructionShape.h"

#include "platform/il/NameTable.h"

namespace KestrelPlatform
{
namespace
{

constexpr SInstructionShape MakeShape(const SILOpCodeTraits& traits)
{
    SInstructionShape shape;
    if (traits.bHasShape)
    {
        const std::string_view name = traits.pszName != nullptr ? traits.pszName : "op(213)";
        shape.pName = name.data();
        shape.nNameLength = static_cast<uint8_t>(name.size());
    }
    shape.bDestination = traits.nDestCount != 0;
    shape.nSources = traits.nSrcCount;
    shape.bModifierWords = (traits.nClasses & OPC_NO_STANDARD_MODIFIERS) == 0;
    shape.bInstructionModifier = (traits.nClasses & OPC_INSTRUCTION_MODIFIER) != 0;
    shape.bInstruction = (traits.nClasses & OPC_NO_INSTRUCTION) == 0;
    shape.eTail = traits.eTail;
    return shape;
}

constexpr SInstructionShapes MakeShapes()
{
    const ILOpCodeTable opCodes = BuildILOpCodeTable();
    SInstructionShapes table;
    for (uint32_t nOpcode = IL_OP_UNKNOWN + 1; nOpcode < IL_OP_LAST; ++nOpcode)
    {
        table.shapes[nOpcode] = MakeShape(opCodes[nOpcode]);
    }
    return table;
}

class COpcodeNames : public CNameTable<11>
{
public:
    constexpr COpcodeNames()
    {
        for (const SILKeyword& keyword : g_ILKeywords)
        {
            if (keyword.nOpCode != IL_OP_UNKNOWN)
            {
                Add(keyword.pszText, static_cast<int>(keyword.nOpCode));
            }
        }
    }
};

constexpr COpcodeNames s_OpcodeNames;

} // namespace

constexpr SInstructionShapes g_InstructionShapes = MakeShapes();

int FindOpcode(std::string_view name)
{
    return s_OpcodeNames.Find(name);
}

} // namespace KestrelPlatform
