#ifndef KESTREL_ENGINE_REGISTEREXPANSION_H
#define KESTREL_ENGINE_REGISTEREXPANSION_H

#include "engine/Position.h"

#include <deque>

namespace OVK_ShaderDebugger
{

class CAnalyzedShaderIL;

/// The registers for which runs are made so that a list is up to date: of an array that is written at an index known
/// only at run time all elements, of private memory the whole slots that a store may reach.
/// \param at  an instruction that writes them, in a call: the function that declares an array may be a caller's
std::deque<Register> ExpandRegisters(const CAnalyzedShaderIL& kernel, const SPosition& at,
                                     const std::deque<Register>& registers);

} // namespace OVK_ShaderDebugger

#endif
