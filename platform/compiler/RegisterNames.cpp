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

/// Nearly all registers of a kernel have names of one letter, which are found without searching.
class CRegisterTypes
{
public:
    constexpr CRegisterTypes()
    {
        for (unsigned int nType = 0; nType < s_nRegisterTypes; ++nType)
        {
            m_Names.Add(s_Names[nType], static_cast<int>(nType));
        }
        for (size_t c = 0; c < sizeof(m_nLetters); ++c)
        {
            const char cLetter = static_cast<char>(c);
            m_nLetters[c] = static_cast<int8_t>(m_Names.Find(std::string_view(&cLetter, 1)));
        }
    }

    int Find(std::string_view name) const
    {
        return name.size() == 1 ? m_nLetters[static_cast<unsigned char>(name[0])] : m_Names.Find(name);
    }

private:
    CNameTable<8> m_Names;
    int8_t m_nLetters[256] = {};
};

constexpr CRegisterTypes s_RegisterTypes;

} // namespace

std::string_view GetRegisterTypeName(unsigned int nType)
{
    return s_Names[nType % s_nRegisterTypes];
}

int FindRegisterType(std::string_view name)
{
    return s_RegisterTypes.Find(name);
}

bool IsRegisterNumberOptional(unsigned int nType)
{
    return nType >= RegisterThreadIdInGroup && nType <= RegisterThreadGroupIdFlat;
}

} // namespace KestrelPlatform
