#include "platform/simt/checks/IntegerChecks.h"

#include "platform/simt/Block.h"
#include "platform/simt/FloatBits.h"
#include "platform/simt/checks/FloatKind.h"

#include <cstring>

namespace KestrelPlatform
{

namespace
{

double NumberOf(ELaneType eType, uint32_t nLow, uint32_t nHigh)
{
    if (eType != ELaneType::D)
    {
        return static_cast<double>(AsFloat(nLow));
    }
    const uint64_t nBits = nLow | static_cast<uint64_t>(nHigh) << 32;
    double fValue = 0;
    std::memcpy(&fValue, &nBits, sizeof fValue);
    return fValue;
}

} // namespace

SIntegerRule FindIntegerRule(uint32_t nLaneOp)
{
    switch (nLaneOp)
    {
    case LANE_IL_OP_I_DIV:
    case LANE_IL_OP_I_MOD:
    case LANE_IL_OP_U_DIV:
    case LANE_IL_OP_U_MOD:
        return {PLATFORM_FAULT_DIVISION};
    case LANE_IL_OP_I64_DIV:
    case LANE_IL_OP_I64_MOD:
    case LANE_IL_OP_U64_DIV:
    case LANE_IL_OP_U64_MOD:
        return {PLATFORM_FAULT_DIVISION, 64};
    case LANE_IL_OP_I_SHL:
    case LANE_IL_OP_I_SHR:
    case LANE_IL_OP_U_SHR:
        return {PLATFORM_FAULT_SHIFT};
    case LANE_IL_OP_I64_SHL:
    case LANE_IL_OP_I64_SHR:
    case LANE_IL_OP_U64_SHR:
        return {PLATFORM_FAULT_SHIFT, 64};
    case LANE_IL_OP_FTOI:
    case LANE_IL_OP_DTOI:
        return {PLATFORM_FAULT_RANGE, 32, -2147483649.0, 2147483648.0};
    case LANE_IL_OP_FTOU:
    case LANE_IL_OP_DTOU:
        return {PLATFORM_FAULT_RANGE, 32, -1.0, 4294967296.0};
    case LANE_IL_OP_DTOI64: // the next number below the lowest that fits
        return {PLATFORM_FAULT_RANGE, 64, -9223372036854777856.0, 9223372036854775808.0};
    case LANE_IL_OP_DTOU64:
        return {PLATFORM_FAULT_RANGE, 64, -1.0, 18446744073709551616.0};
    default:
        return {};
    }
}

bool AreIntegersRight(const CBlock& block, const SMicroOp& step, const SIntegerRule& rule, uint32_t nBegin,
                      uint32_t nEnd)
{
    const uint32_t* const pFirst = block.Row(step.rows.s[0]);
    const uint32_t* const pSecond = block.Row(step.rows.s[2]);
    uint32_t nWrong = 0;
    if (rule.nFault == PLATFORM_FAULT_DIVISION)
    {
        for (uint32_t n = nBegin; n < nEnd; ++n)
        {
            nWrong |= pSecond[n] == 0 ? 1 : 0;
        }
    }
    else if (rule.nFault == PLATFORM_FAULT_SHIFT)
    {
        for (uint32_t n = nBegin; n < nEnd; ++n)
        {
            nWrong |= pSecond[n] >= rule.nWidth ? 1 : 0;
        }
    }
    else if (GetLaneRule(step.nOp).eIn[0] == ELaneType::F)
    {
        // The limits as floats: no other float lies between these and the exact ones.
        const float fLow = static_cast<float>(rule.fLow);
        const float fHigh = static_cast<float>(rule.fHigh);
        for (uint32_t n = nBegin; n < nEnd; ++n)
        {
            nWrong |= AsFloat(pFirst[n]) > fLow && AsFloat(pFirst[n]) < fHigh ? 0 : 1;
        }
    }
    else
    {
        return false;
    }
    return nWrong == 0;
}

bool IsIntegerWrong(const CBlock& block, const SMicroOp& step, const SIntegerRule& rule, uint32_t nLane)
{
    const auto word = [&](uint32_t nSource) { return block.Row(step.rows.s[nSource])[nLane]; };
    if (rule.nFault == PLATFORM_FAULT_DIVISION)
    {
        return (word(2) | (rule.nWidth == 64 ? word(3) : 0)) == 0;
    }
    if (rule.nFault == PLATFORM_FAULT_SHIFT)
    {
        return word(2) >= rule.nWidth;
    }
    const ELaneType eType = GetLaneRule(step.nOp).eIn[0];
    if (LookAt(eType, word(0), word(1)) != Finite)
    {
        return false;
    }
    const double fValue = NumberOf(eType, word(0), word(1));
    return fValue <= rule.fLow || fValue >= rule.fHigh;
}

} // namespace KestrelPlatform
