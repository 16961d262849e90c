#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_ALLOCATION_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_ALLOCATION_H

#include "platform/opencl_c/lowering/MachineCode.h"

#include <cstdint>
#include <vector>

namespace KestrelOpenCL
{

/// A step of the structured form, as far as the allocation needs to know it.
struct SFlowStep
{
    enum EKind
    {
        Block,    ///< nBlock's instructions
        Edge,     ///< the copies of edge nEdge
        Branch,   ///< tests the condition of nBlock
        SetGuard, ///< nGuard
        UseGuard, ///< nGuard
        Other
    };
    EKind eKind = Other;
    unsigned nBlock = 0;
    unsigned nEdge = 0;
    unsigned nGuard = 0;
};

/// A temp and its first component.
struct STemp
{
    uint32_t nRegister = 0;
    uint8_t nComponent = 0;
};

struct SAllocation
{
    std::vector<STemp> vTemps;  ///< by virtual register
    std::vector<STemp> vGuards; ///< by guard
    uint32_t nRegisters = 0;
};

/// Gives each virtual register consecutive components of a temp: a pair starts at x or z, three or four at x. Registers
/// whose stretches of steps don't overlap share components. A phi and the values copied into it become one register if
/// they aren't live at the same time. Takes nearly linear time in the number of instructions.
SAllocation AllocateTemps(const SKernelCode& code, const std::vector<SFlowStep>& vSteps, unsigned nGuards);

} // namespace KestrelOpenCL

#endif
