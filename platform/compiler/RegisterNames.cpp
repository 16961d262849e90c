#include "platform/compiler/RegisterNames.h"

#include "platform/compiler/NameTable.h"

namespace KestrelPlatform
{
namespace
{

constexpr unsigned int s_nRegisterTypes = 64;

// The names that the debugger shows for registers, but for the types that share "v" and "o" with
// another there: text that is read back needs one name for each.
constexpr std::string_view s_Names[s_nRegisterTypes] = {"b",
                                                        "c",
                                                        "i",
                                                        "a",
                                                        "r",
                                                        "vVertex",
                                                        "vIndex",
                                                        "vObjIndex",
                                                        "vBaryCoord",
                                                        "vPrimIndex",
                                                        "vQuadIndex",
                                                        "oVertex",
                                                        "vPixIn",
                                                        "oSprite",
                                                        "oPos",
                                                        "Interp",
                                                        "Fog",
                                                        "T",
                                                        "PriColor",
                                                        "SecColor",
                                                        "vSpriteCoord",
                                                        "vFace",
                                                        "vWinCoord",
                                                        "vPrimCoord",
                                                        "vPrimType",
                                                        "oC",
                                                        "oDepth",
                                                        "oStencil",
                                                        "oClip",
                                                        "vPrim",
                                                        "x",
                                                        "cb",
                                                        "l",
                                                        "v",
                                                        "o",
                                                        "icb",
                                                        "oMask",
                                                        "p",
                                                        "g",
                                                        "oPsFog",
                                                        "sr",
                                                        "vTidInGrp",
                                                        "vTidInGrpFlat",
                                                        "vAbsTid",
                                                        "vAbsTidFlat",
                                                        "vThreadGrpId",
                                                        "vThreadGrpIdFlat",
                                                        "mem",
                                                        "vicp",
                                                        "vpc",
                                                        "vDomain",
                                                        "vocp",
                                                        "vOutputControlPointID",
                                                        "vInstanceID",
                                                        "this",
                                                        "oEdgeFlag",
                                                        "oDepthLE",
                                                        "oDepthGE",
                                                        "vCoverageMask",
                                                        "Tmr",
                                                        "vLineStipple",
                                                        "in",
                                                        "out",
                                                        "regtype"};

class CRegisterTypes : public CNameTable<8>
{
public:
    constexpr CRegisterTypes()
    {
        for (unsigned int nType = 0; nType < s_nRegisterTypes; ++nType)
        {
            Add(s_Names[nType], static_cast<int>(nType));
        }
    }
};

constexpr CRegisterTypes s_RegisterTypes;

constexpr SLetterTypes MakeLetterTypes()
{
    SLetterTypes letters;
    for (size_t c = 0; c < sizeof(letters.nTypes); ++c)
    {
        const char cLetter = static_cast<char>(c);
        letters.nTypes[c] = static_cast<int8_t>(s_RegisterTypes.Find(std::string_view(&cLetter, 1)));
    }
    return letters;
}

} // namespace

std::string_view GetRegisterTypeName(unsigned int nType)
{
    return s_Names[nType % s_nRegisterTypes];
}

constexpr SLetterTypes g_LetterTypes = MakeLetterTypes();

int SearchRegisterType(std::string_view name)
{
    return s_RegisterTypes.Find(name);
}

bool IsRegisterNumberOptional(unsigned int nType)
{
    return nType >= RegisterThreadIdInGroup && nType <= RegisterThreadGroupIdFlat;
}

} // namespace KestrelPlatform
