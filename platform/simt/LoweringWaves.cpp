#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

void CLowering::EmitWave(EWave eWave, uint32_t nLow, uint32_t nHigh, uint32_t nA, uint32_t nB)
{
    SMicroOp step;
    step.eKind = MICRO_WAVE;
    step.nInstruction = m_nInstruction;
    step.nOp = eWave;
    step.rows.d[0] = ToRow(nLow);
    step.rows.d[1] = ToRow(nHigh);
    step.rows.s[0] = ToRow(nA);
    step.rows.s[1] = ToRow(nB);
    m_Code.vSteps.push_back(step);
}

/// readfirstlane and readlane work component by component; the others give all components the same result, ballot a
/// pair.
bool CLowering::LowerWave()
{
    const auto source = [this](uint32_t nSource, uint32_t nComponent)
    { return Source(Operand(nSource), nComponent, T::U); };
    const ILOpCode eOpCode = m_pItem->eOpCode;
    uint32_t nRows[4] = {s_nZeroRow, s_nZeroRow, s_nZeroRow, s_nZeroRow};
    if (eOpCode == IL_OP_READFIRSTLANE || eOpCode == IL_OP_READLANE)
    {
        for (uint32_t n = 0; n < 4; ++n)
        {
            if (!Writes(n))
            {
                continue;
            }
            nRows[n] = Scratch();
            if (eOpCode == IL_OP_READLANE)
            {
                EmitWave(WAVE_READ, nRows[n], s_nZeroRow, source(0, n), source(1, 0));
            }
            else
            {
                EmitWave(WAVE_FIRST, nRows[n], s_nZeroRow, source(0, n), s_nZeroRow);
            }
        }
        return WriteRows(T::U, nRows);
    }
    const uint32_t nLow = Scratch();
    uint32_t nHigh = nLow;
    switch (eOpCode)
    {
    case IL_OP_BALLOT:
        nHigh = Scratch();
        EmitWave(WAVE_BALLOT, nLow, nHigh, source(0, 0), s_nZeroRow);
        break;
    case IL_OP_MBCNT:
        EmitWave(WAVE_COUNT, nLow, s_nZeroRow, source(0, 0), source(0, 1));
        break;
    case IL_OP_LANE_ID:
        EmitWave(WAVE_LANE, nLow, s_nZeroRow, s_nZeroRow, s_nZeroRow);
        break;
    default:
        EmitWave(WAVE_INDEX, nLow, s_nZeroRow, s_nZeroRow, s_nZeroRow);
        break;
    }
    const uint32_t nResult[] = {nLow, nHigh, nLow, nHigh};
    return WriteRows(T::U, nResult);
}

} // namespace KestrelPlatform
