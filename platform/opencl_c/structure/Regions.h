#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONS_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace llvm
{
class BasicBlock;
class ConstantInt;
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// One step of a function in structured form. The steps are the function's region tree in program order, as IL writes
/// it: If ... Else ... EndIf, Loop ... EndLoop and Switch ... Case ... EndSwitch nest; Else is optional. So they can be
/// translated in one pass without recursion, however deep they nest.
///
/// Members that a step doesn't use are null, -1 or empty.
struct SRegionStep
{
    enum EKind
    {
        /// The instructions of pBlock without its phis and its terminator. Each reachable block appears exactly once.
        Block,
        /// The edge pBlock -> pTo is taken here, so the copies into the phis of pTo go here. Each edge to a block with
        /// phis appears exactly once. Several arms of one terminator that lead to one block are one edge.
        /// An edge may come before the branch that decides on it (see Switch). The copies then also run for work-items
        /// that don't take the edge, which has no visible effect.
        Edge,
        /// Sets guard nGuard of the work-item to bValue (all ones or 0). Guards are registers of this function,
        /// numbered 0 .. nGuards - 1. They tell later steps the target of a jump that IL can't express.
        SetGuard,
        /// Enters if the condition is bValue (true: if_logicalnz). The condition is guard nGuard or, if nGuard is -1,
        /// that of the conditional branch at the end of pBlock.
        If,
        Else,
        EndIf,
        /// Repeats until every work-item has left by Break. The end of the body jumps back to its start.
        Loop,
        EndLoop,
        /// Tests the condition of the switch at the end of pBlock, at most 32 bits. The body of each Case lasts until
        /// the next one or EndSwitch. A body that doesn't end in a Break falls through.
        Switch,
        /// A body for the values in vCases and, with bValue, for all values without a case of this switch.
        Case,
        EndSwitch,
        /// Leaves the innermost Loop or Switch.
        Break,
        /// Goes to the start of the innermost Loop, also from within a Switch.
        Continue,
        /// The end of the function, always the last step. pBlock is the block that returns, null if there are several.
        Return
    };

    EKind eKind = Block;
    /// For steps other than Block: the block from which control comes, whose terminator gives the source line. May be
    /// null where guards decide.
    llvm::BasicBlock* pBlock = nullptr;
    llvm::BasicBlock* pTo = nullptr;
    int nGuard = -1;
    bool bValue = false;
    std::vector<const llvm::ConstantInt*> vCases;
};

struct SRegions
{
    std::vector<SRegionStep> vSteps;
    unsigned int nGuards = 0;
};

/// Converts the control flow of a function, however irregular, to structured form; loops may have several exits and
/// entries. The function doesn't change, except that switches over more than 32 bits become branches.
///
/// Each work-item passes through the blocks in the same order as in the function, so liveness follows from the
/// function's own graph. Two values may share a register if their stretches of steps don't overlap. A stretch reaches
/// from the first to the last step at which the value is live or an Edge copies into it; for a guard, from the first to
/// the last step that names it. Blocks with a barrier are outside of every loop that doesn't contain them, and after
/// the point where the paths to them have met.
///
/// Takes nearly linear time in the size of the function, and doesn't recurse.
///
/// \return false, with the reason, for a terminator that OpenCL C doesn't need (indirectbr, invoke)
bool BuildRegions(llvm::Function& function, SRegions& regions, std::string& strWhyNot);

/// The steps as indented text, one a line, blocks by name or number, for tests and debugging.
std::string PrintRegions(const SRegions& regions);

} // namespace KestrelOpenCL

#endif
