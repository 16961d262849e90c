#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

uint32_t CLowering::NewRows(uint32_t nCount)
{
    const uint32_t nRow = m_Code.nRows;
    m_Code.nRows += nCount;
    return nRow;
}

/// Mask rows for the block that is being opened; blocks of a body at the same depth share them.
uint32_t CLowering::MaskRows(uint32_t nCount)
{
    while (m_vMaskRows.size() < m_nMaskRowsUsed + nCount)
    {
        m_vMaskRows.push_back(NewRows(1));
    }
    const uint32_t nRow = m_vMaskRows[m_nMaskRowsUsed];
    m_nMaskRowsUsed += nCount;
    return nRow;
}

uint32_t CLowering::Scratch()
{
    if (m_nScratchUsed == m_vScratch.size())
    {
        m_vScratch.push_back(NewRows(1));
    }
    return m_vScratch[m_nScratchUsed++];
}

uint32_t CLowering::ConstantRow(uint32_t nValue)
{
    if (nValue == 0)
    {
        return s_nZeroRow;
    }
    const auto it = m_mapConstants.find(nValue);
    if (it != m_mapConstants.end())
    {
        return it->second;
    }
    const uint32_t nRow = NewRows(1);
    m_mapConstants.emplace(nValue, nRow);
    m_Code.vConstants.push_back({nRow, -1, nValue});
    m_mapRowValues[nRow] = nValue;
    return nRow;
}

uint32_t CLowering::RegisterRow(uint32_t nType, int32_t nNumber, uint32_t nBody)
{
    if (nType == IL_REGTYPE_TEMP && nNumber >= 0)
    {
        const size_t nTemp = static_cast<uint32_t>(nNumber);
        if (nTemp >= m_vTempRows.size())
        {
            m_vTempRows.resize(nTemp + 1, 0);
        }
        if (m_vTempRows[nTemp] == 0)
        {
            m_vTempRows[nTemp] = NewRegister();
        }
        return m_vTempRows[nTemp];
    }
    const uint64_t nKey =
        (static_cast<uint64_t>(nBody) << 32) | (nType << 24) | (static_cast<uint32_t>(nNumber) & 0xFFFF);
    const uint64_t nSign = nNumber < 0 ? 1ull << 23 : 0;
    // The lookup comes first, as it nearly always succeeds.
    const auto it = m_mapRegisters.find(nKey | nSign);
    if (it != m_mapRegisters.end())
    {
        return it->second;
    }
    const uint32_t nRow = NewRegister();
    m_mapRegisters.emplace(nKey | nSign, nRow);
    return nRow;
}

/// Rows for four components, which read as 0 until they are written.
uint32_t CLowering::NewRegister()
{
    const uint32_t nRow = NewRows(4);
    for (uint32_t n = 0; n < 4; ++n)
    {
        m_Code.vClearRows.push_back(nRow + n);
    }
    return nRow;
}

uint32_t CLowering::RegisterRow(const SOperand& operand)
{
    const bool bArgument = operand.nType == IL_REGTYPE_INPUT_ARG || operand.nType == IL_REGTYPE_OUTPUT_ARG;
    return RegisterRow(operand.nType, operand.nNumber, bArgument ? m_nBody : 0);
}

uint32_t CLowering::IdRow(uint32_t nType, uint32_t nComponent)
{
    const auto inserted = m_mapIdRows.try_emplace(nType * 4 + nComponent, 0);
    if (inserted.second)
    {
        inserted.first->second = NewRows(1);
        m_Code.vIds.push_back({inserted.first->second, nType, nComponent});
    }
    return inserted.first->second;
}

/// The last declaration before the instruction, or the first one if all are after it.
uint32_t CLowering::LiteralRow(const SOperand& operand, uint32_t nComponent)
{
    const size_t nNumber = static_cast<uint32_t>(operand.nNumber);
    if (nNumber >= m_vLiterals.size() || m_vLiterals[nNumber].empty())
    {
        return s_nZeroRow;
    }
    std::pmr::vector<SLiteral>& vLiterals = m_vLiterals[nNumber];
    size_t nLow = 0;
    size_t nHigh = vLiterals.size();
    while (nLow < nHigh)
    {
        const size_t nMiddle = (nLow + nHigh) / 2;
        if (vLiterals[nMiddle].nItem < m_nItem)
        {
            nLow = nMiddle + 1;
        }
        else
        {
            nHigh = nMiddle;
        }
    }
    SLiteral& literal = vLiterals[nLow ? nLow - 1 : 0];
    if (literal.nRows[nComponent] == 0)
    {
        literal.nRows[nComponent] = ConstantRow(literal.nValues[nComponent]);
    }
    return literal.nRows[nComponent];
}

uint32_t CLowering::IndexRow(const SOperand& operand)
{
    switch (operand.nIndexType)
    {
    case IL_REGTYPE_ADDR:
    case IL_REGTYPE_TEMP:
    case IL_REGTYPE_PERSIST:
    case IL_REGTYPE_GLOBAL:
    case IL_REGTYPE_SHARED_TEMP:
    case IL_REGTYPE_INPUT:
    case IL_REGTYPE_OUTPUT:
    case IL_REGTYPE_INPUT_ARG:
    case IL_REGTYPE_OUTPUT_ARG:
    {
        const bool bArgument =
            operand.nIndexType == IL_REGTYPE_INPUT_ARG || operand.nIndexType == IL_REGTYPE_OUTPUT_ARG;
        return RegisterRow(operand.nIndexType, operand.nIndexNumber, bArgument ? m_nBody : 0) + operand.nIndexComponent;
    }
    case IL_REGTYPE_LITERAL:
    {
        SOperand literal;
        literal.nNumber = operand.nIndexNumber;
        return LiteralRow(literal, operand.nIndexComponent);
    }
    case IL_REGTYPE_THREAD_ID_IN_GROUP:
    case IL_REGTYPE_THREAD_ID_IN_GROUP_FLAT:
    case IL_REGTYPE_ABSOLUTE_THREAD_ID:
    case IL_REGTYPE_ABSOLUTE_THREAD_ID_FLAT:
    case IL_REGTYPE_THREAD_GROUP_ID:
    case IL_REGTYPE_THREAD_GROUP_ID_FLAT:
        return IdRow(operand.nIndexType, operand.nIndexComponent);
    default:
        Fail("register type " + std::to_string(operand.nIndexType) + " can't be an index");
        return s_nZeroRow;
    }
}

uint32_t CLowering::IndexedLoad(const SOperand& operand, bool bConstant, uint32_t nArray, uint32_t nComponent)
{
    SIndexed indexed;
    indexed.bConstant = bConstant;
    indexed.nArray = nArray;
    indexed.nIndexRow = IndexRow(operand);
    indexed.nImmediate = operand.nImmediate;
    indexed.nComponent = nComponent;
    SMicroOp step;
    step.eKind = MICRO_INDEX_LOAD;
    step.nInstruction = m_nInstruction;
    step.nAux = static_cast<uint32_t>(m_Code.vIndexed.size());
    step.rows.d[0] = ToRow(Scratch());
    step.rows.s[0] = ToRow(indexed.nIndexRow);
    m_Code.vIndexed.push_back(indexed);
    m_Code.vSteps.push_back(step);
    return step.rows.d[0];
}

void CLowering::Outside(uint32_t nIndex, bool bWrite)
{
    SMicroOp step;
    step.eKind = MICRO_OUTSIDE;
    step.nInstruction = m_nInstruction;
    step.nFlags = bWrite ? 1 : 0;
    step.nAux = nIndex;
    m_Code.vSteps.push_back(step);
}

uint32_t CLowering::BufferRow(const SOperand& operand, uint32_t nComponent)
{
    uint32_t nBuffer = 0;
    if (operand.nType == IL_REGTYPE_IMMED_CONST_BUFF)
    {
        if (m_nInlineBuffer < 0)
        {
            return s_nZeroRow;
        }
        nBuffer = static_cast<uint32_t>(m_nInlineBuffer);
    }
    else
    {
        const auto inserted = m_mapBuffers.try_emplace(static_cast<uint32_t>(operand.nNumber),
                                                       static_cast<uint32_t>(m_Code.vBuffers.size()));
        if (inserted.second)
        {
            m_Code.vBuffers.push_back({static_cast<uint32_t>(operand.nNumber), 0, {}, false});
        }
        nBuffer = inserted.first->second;
    }
    if (operand.bIndexed)
    {
        return IndexedLoad(operand, true, nBuffer, nComponent);
    }
    if (operand.nImmediate >= m_Code.vBuffers[nBuffer].nElements)
    {
        Outside(operand.nImmediate, false);
        return s_nZeroRow;
    }
    const uint32_t nWord = operand.nImmediate * 4 + nComponent;
    const auto inserted = m_mapBufferRows.try_emplace((static_cast<uint64_t>(nBuffer) << 32) | nWord, 0);
    if (inserted.second)
    {
        inserted.first->second = NewRows(1);
        m_Code.vConstants.push_back({inserted.first->second, static_cast<int32_t>(nBuffer), nWord});
    }
    return inserted.first->second;
}

uint32_t CLowering::ArrayRow(const SOperand& operand, uint32_t nComponent)
{
    const auto it = m_mapArrays.find(static_cast<uint32_t>(operand.nNumber));
    if (it == m_mapArrays.end())
    {
        Fail("array x" + std::to_string(operand.nNumber) + " isn't declared");
        return s_nZeroRow;
    }
    if (operand.bIndexed)
    {
        return IndexedLoad(operand, false, it->second, nComponent);
    }
    const SCode::SArray& array = m_Code.vArrays[it->second];
    if (operand.nImmediate >= array.nElements)
    {
        Outside(operand.nImmediate, false);
        return s_nZeroRow;
    }
    return array.Row(operand.nImmediate, nComponent);
}

/// The row of a source's component, after swizzling, before its modifiers.
uint32_t CLowering::Component(const SOperand& operand, uint32_t nComponent)
{
    const uint32_t nSelect = operand.select[nComponent];
    if (nSelect == SOperand::SelectZero)
    {
        return s_nZeroRow;
    }
    if (nSelect == SOperand::SelectOne)
    {
        return ConstantRow(s_nOne);
    }
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
        if (operand.bIndexed)
        {
            break;
        }
        return RegisterRow(operand) + nSelect;
    case IL_REGTYPE_ITEMP:
        return ArrayRow(operand, nSelect);
    case IL_REGTYPE_CONST_BUFF:
    case IL_REGTYPE_IMMED_CONST_BUFF:
        return BufferRow(operand, nSelect);
    case IL_REGTYPE_LITERAL:
        if (operand.bIndexed)
        {
            break;
        }
        return LiteralRow(operand, nSelect);
    case IL_REGTYPE_THREAD_ID_IN_GROUP:
    case IL_REGTYPE_THREAD_ID_IN_GROUP_FLAT:
    case IL_REGTYPE_ABSOLUTE_THREAD_ID:
    case IL_REGTYPE_ABSOLUTE_THREAD_ID_FLAT:
    case IL_REGTYPE_THREAD_GROUP_ID:
    case IL_REGTYPE_THREAD_GROUP_ID_FLAT:
        return IdRow(operand.nType, nSelect);
    default:
        Fail("register type " + std::to_string(operand.nType) + " can't be read");
        return s_nZeroRow;
    }
    Fail("register type " + std::to_string(operand.nType) + " can't be indexed");
    return s_nZeroRow;
}

/// A step that doesn't affect control flow.
SMicroOp& CLowering::EmitStep(EMicroKind eKind)
{
    SMicroOp step;
    step.eKind = eKind;
    step.nInstruction = m_nInstruction;
    m_Code.vSteps.push_back(step);
    return m_Code.vSteps.back();
}

void CLowering::EmitLane(uint32_t nOp, const SLaneRows& rows)
{
    // Written in place: a copy would read at once, in larger pieces, what was just written.
    SMicroOp& step = m_Code.vSteps.emplace_back();
    step.eKind = nOp < LANE_FIRST_SLOW ? MICRO_LANE_FAST : MICRO_LANE_SLOW;
    step.nOp = static_cast<uint16_t>(nOp);
    step.rows = rows;
    step.nInstruction = m_nInstruction;
}

void CLowering::EmitMove(uint32_t nTo, uint32_t nFrom)
{
    SLaneRows rows;
    rows.d[0] = ToRow(nTo);
    rows.s[0] = ToRow(nFrom);
    EmitLane(LANE_Mov, rows);
}

uint32_t CLowering::Unary(ELaneOp eOp, uint32_t nRow)
{
    return Ternary(eOp, nRow, s_nZeroRow, s_nZeroRow);
}

uint32_t CLowering::Binary(ELaneOp eOp, uint32_t nA, uint32_t nB)
{
    return Ternary(eOp, nA, nB, s_nZeroRow);
}

uint32_t CLowering::Ternary(ELaneOp eOp, uint32_t nA, uint32_t nB, uint32_t nC)
{
    SLaneRows rows;
    rows.d[0] = ToRow(Scratch());
    rows.s[0] = ToRow(nA);
    rows.s[2] = ToRow(nB);
    rows.s[4] = ToRow(nC);
    EmitLane(eOp, rows);
    return rows.d[0];
}

uint32_t CLowering::ModifiedFloat(const SOperand& operand, uint32_t nComponent, uint32_t nRow)
{
    if (operand.bInvert)
    {
        nRow = Unary(LANE_Invert, nRow);
    }
    if (operand.bBias)
    {
        nRow = Unary(LANE_Bias, nRow);
    }
    if (operand.bTimes2)
    {
        nRow = Binary(LANE_Multiply, nRow, ConstantRow(FloatBits(2)));
    }
    if (operand.bSign)
    {
        nRow = Unary(LANE_Sign, nRow);
    }
    if (operand.bClamp)
    {
        nRow = Unary(LANE_Saturate, nRow);
    }
    const bool bNegate = operand.bNegate[nComponent];
    const auto itValue = m_mapRowValues.find(nRow);
    if (itValue != m_mapRowValues.end())
    {
        const uint32_t nMagnitude = operand.bAbs ? itValue->second & ~s_nSignBit : itValue->second;
        return ConstantRow(bNegate ? nMagnitude ^ s_nSignBit : nMagnitude);
    }
    if (operand.bAbs)
    {
        nRow = Unary(LANE_Abs, nRow);
    }
    return bNegate ? Unary(LANE_Negate, nRow) : nRow;
}

/// One 32-bit component in the form that a rule of this type reads.
uint32_t CLowering::Source(const SOperand& operand, uint32_t nComponent, T eType)
{
    const uint32_t nRow = Component(operand, nComponent);
    const bool bNegate = operand.bNegate[nComponent];
    if (!bNegate && !operand.HasFloatModifiers())
    {
        return nRow;
    }
    if (eType == T::F)
    {
        return ModifiedFloat(operand, nComponent, nRow);
    }
    const bool bHalf = eType == T::H;
    uint32_t nResult = operand.bAbs ? Unary(bHalf ? LANE_HalfAbs : LANE_IAbs, nRow) : nRow;
    if (bNegate)
    {
        nResult = Unary(bHalf ? LANE_HalfNegate : LANE_INegate, nResult);
    }
    return nResult;
}

void CLowering::SourcePair(const SOperand& operand, uint32_t nPair, T eType, uint16_t* pRows)
{
    pRows[0] = static_cast<uint16_t>(Component(operand, nPair * 2));
    pRows[1] = static_cast<uint16_t>(Component(operand, nPair * 2 + 1));
    const bool bNegate = operand.bNegate[nPair * 2] || operand.bNegate[nPair * 2 + 1];
    if (!bNegate && !operand.bAbs)
    {
        return;
    }
    if (eType == T::D)
    {
        pRows[1] = ToRow(operand.bAbs ? Unary(LANE_Abs, pRows[1]) : pRows[1]);
        pRows[1] = ToRow(bNegate ? Unary(LANE_Negate, pRows[1]) : pRows[1]);
        return;
    }
    for (const ELaneOp eOp : {LANE_LAbs, LANE_LNegate})
    {
        if (!(eOp == LANE_LAbs ? operand.bAbs : bNegate))
        {
            continue;
        }
        SLaneRows rows;
        rows.d[0] = ToRow(Scratch());
        rows.d[1] = ToRow(Scratch());
        rows.s[0] = pRows[0];
        rows.s[1] = pRows[1];
        EmitLane(eOp, rows);
        pRows[0] = rows.d[0];
        pRows[1] = rows.d[1];
    }
}

} // namespace KestrelPlatform
