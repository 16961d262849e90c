#ifndef KESTREL_ENGINE_POSITION_H
#define KESTREL_ENGINE_POSITION_H

#include "core/CallPath.h"

namespace OVK_ShaderDebugger
{

/// A moment of the dispatch: an instruction in a certain pass of the loops around it, in a certain call.
struct SPosition
{
    ProgramCounter pc;
    CCallPath callStack;

    bool operator==(const SPosition& other) const { return pc == other.pc && callStack == other.callStack; }
};

/// Whether a position is executed earlier than another. A call comes after all that is executed in it.
bool IsBefore(const SPosition& lhs, const SPosition& rhs);

} // namespace OVK_ShaderDebugger

#endif
