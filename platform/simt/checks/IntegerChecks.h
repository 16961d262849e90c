#ifndef KESTREL_PLATFORM_SIMT_CHECKS_INTEGERCHECKS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_INTEGERCHECKS_H

#include <cstdint>

namespace KestrelPlatform
{

class CBlock;
struct SMicroOp;

/// The fault that an integer operation is checked for, and the width of its operand.
struct SIntegerRule
{
    uint32_t nFault = 0;
    uint32_t nWidth = 32;
    double fLow = 0; ///< of a conversion: values between these two fit when truncated
    double fHigh = 0;
};

/// \return one without a fault if it has a result for all operands
SIntegerRule FindIntegerRule(uint32_t nLaneOp);

/// A quick look at the operands of a step that is about to run. It ignores the mask, and the second words of 64-bit
/// operands, so false only means that each lane has to be looked at.
/// \param nBegin,nEnd  the lanes
bool AreIntegersRight(const CBlock& block, const SMicroOp& step, const SIntegerRule& rule, uint32_t nBegin,
                      uint32_t nEnd);

/// Whether the operation has no correct result in a lane.
bool IsIntegerWrong(const CBlock& block, const SMicroOp& step, const SIntegerRule& rule, uint32_t nLane);

} // namespace KestrelPlatform

#endif
