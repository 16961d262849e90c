#ifndef KESTREL_PLATFORM_SIMT_LANERULES_H
#define KESTREL_PLATFORM_SIMT_LANERULES_H

#include "platform/il/InstructionShape.h"
#include "platform/simt/LaneOps.h"

namespace KestrelPlatform
{

/// The components that a rule reads and writes; see LaneOpsFast.def.
enum class ELaneForm
{
    VEC,
    SCALAR,
    PAIR,
    TOPAIR,
    FROMPAIR
};

enum class ELaneType
{
    N,
    U,
    I,
    F,
    L,
    S,
    D,
    H,
    W,
    X
};

struct SLaneRule
{
    ELaneForm eForm = ELaneForm::VEC;
    ELaneType eOut = ELaneType::N;
    ELaneType eIn[3] = {ELaneType::N, ELaneType::N, ELaneType::N};
};

inline bool IsPair(ELaneType eType)
{
    return eType == ELaneType::L || eType == ELaneType::S || eType == ELaneType::D;
}

const SLaneRule& GetLaneRule(uint32_t nOp);

/// The lane operation of an opcode of ClassLane.
uint32_t FindLaneOp(ILOpCode eOpCode);

} // namespace KestrelPlatform

#endif
