#ifndef KESTREL_IL_SHADERDEBUGGERUTILSIL_H
#define KESTREL_IL_SHADERDEBUGGERUTILSIL_H

#include "core/ShaderDebuggerCommon.h"
#include "il/ILFormatDecode.h"

#include <string>

/// The translation between the debugger's vocabulary of registers and that of the tokens, and the text form of
/// register names. Free functions without state; failures go to the consistency log.
namespace ShaderDebuggerUtilsIL
{

/// A destination token with only the type, the number and `modifier_present` set.
IL_Dst DestRegister(ILRegType type, int nNumber, bool bModifier);

/// The modifier word that writes the components of the mask.
IL_Dst_Mod GetILDstMod(OVK_ShaderDebugger::RegisterMask mask);
/// The components that are written with a value; those set to a constant 0 or 1 don't count.
OVK_ShaderDebugger::RegisterMask GetMask(IL_Dst_Mod mod);

/// The modifier word that reads the components of the mask, and fills the rest as told. The mask is a single
/// component, xy, zw, xyz or all four; for any other the word is 0, and this is logged.
IL_Src_Mod GetILSrcMod(OVK_ShaderDebugger::RegisterMask mask, OVK_ShaderDebugger::ComponentExtend extend);
/// The lowest component that the swizzle names; none if it names only constants or if the word changes the value.
OVK_ShaderDebugger::RegisterMask GetMask(IL_Src_Mod mod);

/// RT_Unknown, logged, for a type with no counterpart.
OVK_ShaderDebugger::RegisterType ILtoSDRegisterType(ILRegType type);
/// IL_REGTYPE_LAST, logged, for a type with no counterpart.
ILRegType SDtoILRegisterType(OVK_ShaderDebugger::RegisterType type);

/// The text that a register name of this type begins with: a string that lives forever. "!!!invalidRegType!!!",
/// logged, for a type without one.
const char* GetILRegisterType(ILRegType type);
/// The first type with exactly this text; IL_REGTYPE_LAST, logged, for an unknown text.
ILRegType ParseILRegisterType(const std::string& strType);

/// Whether the registers of the type carry an index in their names.
bool IsILRegTypeIndexed(ILRegType type);

/// A name such as r5 or, for an indexed type and if wanted with its index, cb1[3].
std::string GetILRegisterName(const OVK_ShaderDebugger::Register& reg, bool bIncludeIndex);
/// The register of such a name. g_RegID_NULL, logged, for what is none; names of private memory aren't offered.
OVK_ShaderDebugger::RegisterID ParseILRegisterName(const std::string& strName);

} // namespace ShaderDebuggerUtilsIL

#endif // KESTREL_IL_SHADERDEBUGGERUTILSIL_H
