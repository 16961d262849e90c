#ifndef KESTREL_ENGINE_OPCODEROLES_H
#define KESTREL_ENGINE_OPCODEROLES_H

#include "il/ILFormatDecode.h"

/// What an instruction means for the position of a dispatch.
namespace OVK_ShaderDebugger
{

inline bool IsBreak(ILOpCode op)
{
    return op == IL_OP_BREAK || op == IL_OP_BREAKC || op == IL_OP_BREAK_LOGICALZ || op == IL_OP_BREAK_LOGICALNZ;
}

inline bool IsContinue(ILOpCode op)
{
    return op == IL_OP_CONTINUE || op == IL_OP_CONTINUEC || op == IL_OP_CONTINUE_LOGICALZ ||
           op == IL_OP_CONTINUE_LOGICALNZ;
}

inline bool IsReturn(ILOpCode op)
{
    return op == IL_OP_RET || op == IL_OP_RET_DYN;
}

inline bool IsConditionalReturn(ILOpCode op)
{
    return op == IL_OP_RET_LOGICALZ || op == IL_OP_RET_LOGICALNZ;
}

inline bool IsConditionalCall(ILOpCode op)
{
    return op == IL_OP_CALLNZ || op == IL_OP_CALL_LOGICALZ || op == IL_OP_CALL_LOGICALNZ;
}

inline bool IsIf(ILOpCode op)
{
    return op == IL_OP_IFC || op == IL_OP_IFNZ || op == IL_OP_IF_LOGICALZ || op == IL_OP_IF_LOGICALNZ;
}

inline bool IsCase(ILOpCode op)
{
    return op == IL_OP_CASE || op == IL_OP_DEFAULT;
}

/// Whether an instruction takes work-items elsewhere than to the next one or into a block of its own.
inline bool IsJump(ILOpCode op)
{
    return IsBreak(op) || IsContinue(op) || IsReturn(op) || IsConditionalReturn(op);
}

} // namespace OVK_ShaderDebugger

#endif
