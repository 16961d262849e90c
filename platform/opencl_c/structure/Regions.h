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

/// One step of a function in structured form. The steps of a function are its region tree, written down in program
/// order as IL writes it: If ... Else ... EndIf, Loop ... EndLoop and Switch ... Case ... EndSwitch nest, Else may be
/// missing. So who translates them needs one pass and no recursion, however deep the nesting is.
///
/// What a step doesn't use is null, -1 or empty.
struct SRegionStep
{
    enum EKind
    {
        /// The instructions of pBlock, without its phis and its terminator. Each block that can be reached stands
        /// here exactly once.
        Block,
        /// The edge pBlock -> pTo is taken here: the place for the copies into the phis of pTo. Each edge to a
        /// block with phis stands exactly once. If several arms of one terminator lead to one block, that is one edge.
        /// An edge can lie in front of the branch that decides on it (see Switch): the copies then also run for those
        /// who don't take it, which nobody sees.
        Edge,
        /// Guard nGuard of the work-item becomes bValue (all ones or 0). Guards are registers of this function,
        /// 0 .. nGuards - 1; they tell later steps where a jump wants to go that IL has no word for.
        SetGuard,
        /// Enter if the condition is bValue (true: if_logicalnz). The condition is guard nGuard, or with nGuard -1 that
        /// of the conditional branch that ends pBlock.
        If,
        Else,
        EndIf,
        /// Repeats until everybody has left by Break. The end of the body goes back to its start.
        Loop,
        EndLoop,
        /// On the condition of the switch that ends pBlock, of at most 32 bits. Steps follow for each Case up to the
        /// next one or EndSwitch. A body that doesn't end in a Break falls into the next one.
        Switch,
        /// The body for the values in vCases, and for all that no case names if bValue. Only the switch's own cases.
        Case,
        EndSwitch,
        /// Out of the innermost Loop or Switch.
        Break,
        /// To the start of the innermost Loop, also out of a Switch.
        Continue,
        /// The end of the function, always the last step. pBlock is the block that returns, null if there are several.
        Return
    };

    EKind eKind = Block;
    /// For steps other than Block: where control comes from; its terminator gives the source line. Can be null for what
    /// guards decide on.
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

/// Brings the flow of a function into structured form, whatever shape it has: loops with several exits and entries
/// included. The function stays as it is, except that switches over more than 32 bits become branches.
///
/// Each work-item walks through the blocks as in the function, so liveness is that of the function's own graph. A
/// register may be shared if the stretches of steps over which its values live don't meet; such a stretch goes from the
/// first to the last step at which the value is live or an Edge copies into it, guards from the first to the last step
/// that names them. Blocks with a barrier stand outside of every loop that they aren't part of, and after the point
/// where the paths to them have met again.
///
/// Time is near linear in the size of the function. Nothing recurses.
///
/// \return false with the reason for a terminator that OpenCL C has no use for (indirectbr, invoke)
bool BuildRegions(llvm::Function& function, SRegions& regions, std::string& strWhyNot);

/// The steps as indented text, one a line, blocks by name or number; for tests and for a look.
std::string PrintRegions(const SRegions& regions);

} // namespace KestrelOpenCL

#endif
