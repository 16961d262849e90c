#ifndef KESTREL_API_REGISTERLOCATORS_H
#define KESTREL_API_REGISTERLOCATORS_H

#include "OVKKestrel.h"

#include <string>

/// Registers as numbers and as text. The text is what the engine's results are named by. Pure functions.
namespace Kestrel
{

/// Every register type in the order of its number: X(name, text).
#define DL_REGISTER_TYPES(X)                                                                                           \
    X(DL_REGTYPE_CONST_BOOL, "b")                                                                                      \
    X(DL_REGTYPE_CONST_FLOAT, "c")                                                                                     \
    X(DL_REGTYPE_CONST_INT, "i")                                                                                       \
    X(DL_REGTYPE_ADDR, "a")                                                                                            \
    X(DL_REGTYPE_TEMP, "r")                                                                                            \
    X(DL_REGTYPE_VERTEX, "v")                                                                                          \
    X(DL_REGTYPE_INDEX, "vIndex")                                                                                      \
    X(DL_REGTYPE_OBJECT_INDEX, "vObjIndex")                                                                            \
    X(DL_REGTYPE_BARYCENTRIC_COORD, "vBaryCoord")                                                                      \
    X(DL_REGTYPE_PRIMITIVE_INDEX, "vPrimIndex")                                                                        \
    X(DL_REGTYPE_QUAD_INDEX, "vQuadIndex")                                                                             \
    X(DL_REGTYPE_VOUTPUT, "o")                                                                                         \
    X(DL_REGTYPE_PINPUT, "vPixIn")                                                                                     \
    X(DL_REGTYPE_SPRITE, "oSprite")                                                                                    \
    X(DL_REGTYPE_POS, "oPos")                                                                                          \
    X(DL_REGTYPE_INTERP, "Interp")                                                                                     \
    X(DL_REGTYPE_FOG, "Fog")                                                                                           \
    X(DL_REGTYPE_TEXCOORD, "T")                                                                                        \
    X(DL_REGTYPE_PRICOLOR, "PriColor")                                                                                 \
    X(DL_REGTYPE_SECCOLOR, "SecColor")                                                                                 \
    X(DL_REGTYPE_SPRITECOORD, "vSpriteCoord")                                                                          \
    X(DL_REGTYPE_FACE, "vFace")                                                                                        \
    X(DL_REGTYPE_WINCOORD, "vWinCoord")                                                                                \
    X(DL_REGTYPE_PRIMCOORD, "vPrimCoord")                                                                              \
    X(DL_REGTYPE_PRIMTYPE, "vPrimType")                                                                                \
    X(DL_REGTYPE_PCOLOR, "oC")                                                                                         \
    X(DL_REGTYPE_DEPTH, "oDepth")                                                                                      \
    X(DL_REGTYPE_STENCIL, "oStencil")                                                                                  \
    X(DL_REGTYPE_CLIP, "oClip")                                                                                        \
    X(DL_REGTYPE_VPRIM, "vPrim")                                                                                       \
    X(DL_REGTYPE_ITEMP, "x")                                                                                           \
    X(DL_REGTYPE_CONST_BUFF, "cb")                                                                                     \
    X(DL_REGTYPE_LITERAL, "l")                                                                                         \
    X(DL_REGTYPE_INPUT, "v")                                                                                           \
    X(DL_REGTYPE_OUTPUT, "o")                                                                                          \
    X(DL_REGTYPE_IMMED_CONST_BUFF, "icb")                                                                              \
    X(DL_REGTYPE_OMASK, "oMask")                                                                                       \
    X(DL_REGTYPE_PERSIST, "p")                                                                                         \
    X(DL_REGTYPE_GLOBAL, "g")                                                                                          \
    X(DL_REGTYPE_PS_OUT_FOG, "oPsFog")                                                                                 \
    X(DL_REGTYPE_SHARED_TEMP, "sr")                                                                                    \
    X(DL_REGTYPE_THREAD_ID_IN_GROUP, "vTidInGrp")                                                                      \
    X(DL_REGTYPE_THREAD_ID_IN_GROUP_FLAT, "vTidInGrpFlat")                                                             \
    X(DL_REGTYPE_ABSOLUTE_THREAD_ID, "vAbsTid")                                                                        \
    X(DL_REGTYPE_ABSOLUTE_THREAD_ID_FLAT, "vAbsTidFlat")                                                               \
    X(DL_REGTYPE_THREAD_GROUP_ID, "vThreadGrpId")                                                                      \
    X(DL_REGTYPE_THREAD_GROUP_ID_FLAT, "vThreadGrpIdFlat")                                                             \
    X(DL_REGTYPE_GENERIC_MEM, "mem")                                                                                   \
    X(DL_REGTYPE_INPUTCP, "vicp")                                                                                      \
    X(DL_REGTYPE_PATCHCONST, "vpc")                                                                                    \
    X(DL_REGTYPE_DOMAINLOCATION, "vDomain")                                                                            \
    X(DL_REGTYPE_OUTPUTCP, "vocp")                                                                                     \
    X(DL_REGTYPE_OCP_ID, "vOutputControlPointID")                                                                      \
    X(DL_REGTYPE_SHADER_INSTANCE_ID, "vInstanceID")                                                                    \
    X(DL_REGTYPE_THIS, "this")                                                                                         \
    X(DL_REGTYPE_EDGEFLAG, "oEdgeFlag")                                                                                \
    X(DL_REGTYPE_DEPTH_LE, "oDepthLE")                                                                                 \
    X(DL_REGTYPE_DEPTH_GE, "oDepthGE")                                                                                 \
    X(DL_REGTYPE_INPUT_COVERAGE_MASK, "vCoverageMask")                                                                 \
    X(DL_REGTYPE_TIMER, "Tmr")                                                                                         \
    X(DL_REGTYPE_LINE_STIPPLE, "vLineStipple")                                                                         \
    X(DL_REGTYPE_INPUT_ARG, "in")                                                                                      \
    X(DL_REGTYPE_OUTPUT_ARG, "out")                                                                                    \
    X(DL_REGTYPE_PRIVATE_UAV_ACCESS, "PrivateUAVAccess")

enum DLRegType
{
#define DL_DECLARE_REGISTER_TYPE(name, text) name,
    DL_REGISTER_TYPES(DL_DECLARE_REGISTER_TYPE)
#undef DL_DECLARE_REGISTER_TYPE
        DL_REGTYPE_LAST
};

static_assert(DL_REGTYPE_ITEMP == 30 && DL_REGTYPE_LAST == 64, "register types are part of a locator");

/// What no register has.
constexpr ovkclDebugRegisterLocator s_InvalidLocator = 0xFFFFFFFFFFFFFFFFULL;

/// The text of a type; empty for what is no type.
std::string DLRegTypeToString(DLRegType regType);

/// The type of a text. "v" and "o" stand for two types each and give the lower one; "vPrim" has no way
/// back. DL_REGTYPE_LAST for what is no type's text.
DLRegType StringToDLRegType(const std::string& strRegType);

/// Whether registers of a type carry an index.
bool IsRegTypeIndexed(DLRegType regType);

/// The general form of a locator.
ovkclDebugRegisterLocator MakeRegisterLocator(DLRegType regType, unsigned int nNumber, unsigned int nIndex);

/// A type's text, a number, and for an indexed type an index in square brackets. s_InvalidLocator for
/// anything else.
ovkclDebugRegisterLocator stringToDebugRegisterLocator(std::string strILRegName);

/// Empty for what is no register.
std::string debugRegisterLocatorToString(ovkclDebugRegisterLocator debugRegisterLocator);

} // namespace Kestrel

#endif
