// Where the parts of an instruction write, and the modifiers of results.

#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

bool CLowering::Writes(uint32_t nComponent) const
{
    return Destination().write[nComponent] == SOperand::WriteResult;
}

bool CLowering::IsPlainDestination(const SOperand& operand) const
{
    switch (operand.nType)
    {
    case IL_REGTYPE_ADDR:
    case IL_REGTYPE_TEMP:
    case IL_REGTYPE_INPUT:
    case IL_REGTYPE_OUTPUT:
    case IL_REGTYPE_PERSIST:
    case IL_REGTYPE_GLOBAL:
    case IL_REGTYPE_SHARED_TEMP:
    case IL_REGTYPE_INPUT_ARG:
    case IL_REGTYPE_OUTPUT_ARG:
        return !operand.bIndexed;
    default:
        return false;
    }
}

/// Chooses where the parts of the current instruction write: directly to the destination's rows, or to scratch rows if
/// modifiers follow, if the destination is an array, or if a later part still reads what an earlier one would
/// overwrite.
bool CLowering::BeginDestination(T eType, const CParts& parts)
{
    const SOperand& destination = Destination();
    m_eDestinationType = eType;
    const bool bFloat = eType == T::F || eType == T::D;
    m_bInPlace = IsPlainDestination(destination) && !(bFloat && (destination.bClamp || destination.nShift));
    if (!m_bInPlace && !IsPlainDestination(destination) && destination.nType != IL_REGTYPE_ITEMP)
    {
        return Fail("register type " + std::to_string(destination.nType) + " can't be written");
    }
    // If only one word of a pair is written, the pair is computed in scratch rows.
    if (IsPair(eType) && (Writes(0) != Writes(1) || Writes(2) != Writes(3)))
    {
        m_bInPlace = false;
    }
    const uint32_t nBase = m_bInPlace ? RegisterRow(destination) : 0;
    for (size_t i = 0; m_bInPlace && i + 1 < parts.size(); ++i)
    {
        for (size_t j = i + 1; j < parts.size() && m_bInPlace; ++j)
        {
            for (const uint32_t nSource : parts[j].rows.s)
            {
                // Until targets are chosen, a part's destination is the component's number.
                const bool bFirst = parts[i].rows.d[0] < 4 && nSource == nBase + parts[i].rows.d[0];
                const bool bSecond = parts[i].rows.d[1] < 4 && nSource == nBase + parts[i].rows.d[1];
                m_bInPlace = m_bInPlace && !bFirst && !bSecond;
            }
        }
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        m_nTargets[n] = m_bInPlace ? nBase + n : (Writes(n) || IsPair(eType) ? Scratch() : 0);
    }
    return !m_bFailed;
}

/// Applies shift_scale to a result row, or to the pair of rows of a double.
void CLowering::Scale(uint32_t nRow, uint32_t nHighRow)
{
    static constexpr float s_fFactors[] = {0, 2, 4, 8, 0.5f, 0.25f, 0.125f};
    const SOperand& destination = Destination();
    const bool bDouble = m_eDestinationType == T::D;
    SLaneRows rows;
    rows.d[0] = rows.s[0] = ToRow(nRow);
    rows.d[1] = rows.s[1] = ToRow(nHighRow);
    if (destination.nShift >= 1 && destination.nShift < std::size(s_fFactors))
    {
        const float fFactor = s_fFactors[destination.nShift];
        rows.s[2] = ToRow(bDouble ? s_nZeroRow : ConstantRow(FloatBits(fFactor)));
        rows.s[3] = ToRow(bDouble ? ConstantRow(HighDoubleBits(fFactor)) : 0);
        EmitLane(bDouble ? LANE_DMultiply : LANE_Multiply, rows);
    }
    rows.s[2] = rows.s[3] = 0;
    if (destination.bClamp)
    {
        EmitLane(bDouble ? LANE_DSaturate : LANE_Saturate, rows);
    }
}

void CLowering::StoreComponent(uint32_t nComponent, uint32_t nRow)
{
    const SOperand& destination = Destination();
    if (IsPlainDestination(destination))
    {
        EmitMove(RegisterRow(destination) + nComponent, nRow);
        return;
    }
    const auto it = m_mapArrays.find(static_cast<uint32_t>(destination.nNumber));
    if (it == m_mapArrays.end())
    {
        Fail("array x" + std::to_string(destination.nNumber) + " isn't declared");
        return;
    }
    const SCode::SArray array = m_Code.vArrays[it->second];
    if (!destination.bIndexed)
    {
        if (destination.nImmediate < array.nElements)
        {
            EmitMove(array.Row(destination.nImmediate, nComponent), nRow);
        }
        return;
    }
    SMicroOp& last = m_Code.vSteps.back();
    if (last.eKind == MICRO_INDEX_STORE && last.nInstruction == m_nInstruction)
    {
        last.rows.s[nComponent] = ToRow(nRow);
        last.rows.d[0] |= 1u << nComponent;
        return;
    }
    SIndexed indexed;
    indexed.nArray = it->second;
    indexed.nIndexRow = IndexRow(destination);
    indexed.nImmediate = destination.nImmediate;
    SMicroOp step;
    step.eKind = MICRO_INDEX_STORE;
    step.nInstruction = m_nInstruction;
    step.nAux = static_cast<uint32_t>(m_Code.vIndexed.size());
    step.rows.s[nComponent] = ToRow(nRow);
    step.rows.s[4] = ToRow(indexed.nIndexRow);
    step.rows.d[0] = static_cast<uint16_t>(1u << nComponent);
    m_Code.vIndexed.push_back(indexed);
    m_Code.vSteps.push_back(step);
}

/// Applies the destination's modifiers, copies the result to its rows unless it is there, and sets components that take
/// a constant.
void CLowering::FinishDestination()
{
    const SOperand& destination = Destination();
    if (!m_bInPlace)
    {
        const bool bDouble = m_eDestinationType == T::D;
        for (uint32_t n = 0; n < 4 && bDouble; n += 2)
        {
            if (Writes(n) || Writes(n + 1))
            {
                Scale(m_nTargets[n], m_nTargets[n + 1]);
            }
        }
        for (uint32_t n = 0; n < 4 && m_eDestinationType == T::F; ++n)
        {
            if (Writes(n))
            {
                Scale(m_nTargets[n], 0);
            }
        }
        for (uint32_t n = 0; n < 4; ++n)
        {
            if (Writes(n))
            {
                StoreComponent(n, m_nTargets[n]);
            }
        }
    }
    const bool bOutside =
        destination.nType == IL_REGTYPE_ITEMP && !destination.bIndexed &&
        m_mapArrays.count(static_cast<uint32_t>(destination.nNumber)) &&
        destination.nImmediate >= m_Code.vArrays[m_mapArrays[static_cast<uint32_t>(destination.nNumber)]].nElements;
    if (bOutside)
    {
        Outside(destination.nImmediate, true);
        return;
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (destination.write[n] == SOperand::WriteZero)
        {
            StoreComponent(n, s_nZeroRow);
        }
        if (destination.write[n] == SOperand::WriteOne)
        {
            StoreComponent(n, ConstantRow(s_nOne));
        }
    }
}

} // namespace KestrelPlatform
