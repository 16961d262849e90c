#include "platform/compiler/RegisterNames.h"

#include <unordered_map>

namespace KestrelPlatform
{
namespace
{

const unsigned int s_nRegisterTypes = 64;

// The names that the debugger shows for registers, but for the types that share "v" and "o" with
// another there: text that is read back needs one name for each.
const char* const s_Names[s_nRegisterTypes] = {"b",
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

} // namespace

const char* GetRegisterTypeName(unsigned int nType)
{
    return s_Names[nType % s_nRegisterTypes];
}

int FindRegisterType(std::string_view name)
{
    static const std::unordered_map<std::string_view, int> s_Types = []
    {
        std::unordered_map<std::string_view, int> types;
        for (unsigned int nType = 0; nType < s_nRegisterTypes; ++nType)
        {
            types.emplace(s_Names[nType], static_cast<int>(nType));
        }
        return types;
    }();
    const auto it = s_Types.find(name);
    return it == s_Types.end() ? -1 : it->second;
}

bool IsRegisterNumberOptional(unsigned int nType)
{
    return nType >= RegisterThreadIdInGroup && nType <= RegisterThreadGroupIdFlat;
}

} // namespace KestrelPlatform
