#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

namespace
{

/// Indexed by the relation field of the controls.
const ELaneOp s_Relations[] = {LANE_FEqual,        LANE_FNotEqual, LANE_FGreater,
                               LANE_FGreaterEqual, LANE_FLess,     LANE_FLessEqual};

const uint32_t s_nFenceMemory = 4;

} // namespace

/// Adds the component's parts of one rule; until WriteParts, destinations are component numbers.
void CLowering::AddParts(uint32_t nOp, const SLaneRule& rule, CParts& parts)
{
    const bool bOutPair = IsPair(rule.eOut);
    const uint32_t nStep = bOutPair ? 2 : 1;
    for (uint32_t n = 0; n < 4; n += nStep)
    {
        if (!Writes(n) && !(bOutPair && Writes(n + 1)))
        {
            continue;
        }
        SPart part;
        part.nOp = nOp;
        part.rows.d[0] = static_cast<uint16_t>(n);
        part.rows.d[1] = static_cast<uint16_t>(bOutPair ? n + 1 : 4);
        for (uint32_t i = 0; i < m_pItem->nSources && i < 3; ++i)
        {
            const SOperand& operand = Operand(i);
            const T eType = rule.eIn[i];
            if (eType == T::N)
            {
                continue;
            }
            if (IsPair(eType))
            {
                SourcePair(operand, bOutPair ? n / 2 : n & 1, eType, &part.rows.s[i * 2]);
            }
            else if (rule.eForm == ELaneForm::TOPAIR)
            {
                part.rows.s[i * 2] = ToRow(Source(operand, n / 2, eType));
            }
            else
            {
                part.rows.s[i * 2] = ToRow(Source(operand, rule.eForm == ELaneForm::SCALAR ? 3 : n, eType));
            }
        }
        parts.push_back(part);
        if (rule.eForm == ELaneForm::SCALAR)
        {
            return;
        }
    }
}

bool CLowering::WriteParts(T eType, CParts& parts)
{
    if (!BeginDestination(eType, parts))
    {
        return false;
    }
    for (SPart& part : parts)
    {
        part.rows.d[0] = ToRow(Target(part.rows.d[0]));
        part.rows.d[1] = ToRow(part.rows.d[1] < 4 ? Target(part.rows.d[1]) : 0);
        EmitLane(part.nOp, part.rows);
    }
    FinishDestination();
    return !m_bFailed;
}

/// Whether the move sets to 0 what is 0 anyway, as nothing has been computed yet: registers read as 0 until they are
/// written, and some kernels begin by clearing all of theirs.
bool CLowering::ClearsAtStart()
{
    const bool bNothingYet = m_Code.vSteps.size() == 1 && !m_bTrace;
    const SOperand& source = Operand(0);
    const SOperand& destination = Destination();
    if (!bNothingYet || source.nType != IL_REGTYPE_LITERAL || source.bIndexed || source.HasFloatModifiers() ||
        !IsPlainDestination(destination) || destination.bClamp || destination.nShift != 0)
    {
        return false;
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (destination.write[n] == SOperand::WriteOne ||
            (Writes(n) && (source.bNegate[n] || Component(source, n) != s_nZeroRow)))
        {
            return false;
        }
    }
    return true;
}

/// Copies finished rows, one for each component, to the components of the destination.
bool CLowering::WriteRows(T eType, const uint32_t* pRows)
{
    CParts parts;
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (!Writes(n))
        {
            continue;
        }
        SPart part;
        part.nOp = LANE_Mov;
        part.rows.d[0] = static_cast<uint16_t>(n);
        part.rows.d[1] = 4;
        part.rows.s[0] = ToRow(pRows[n]);
        parts.push_back(part);
    }
    return WriteParts(eType, parts);
}

bool CLowering::WriteAll(T eType, uint32_t nRow)
{
    const uint32_t nRows[] = {nRow, nRow, nRow, nRow};
    return WriteRows(eType, nRows);
}

bool CLowering::LowerRule(uint32_t nOp)
{
    if (nOp == LANE_IL_OP_MOV && ClearsAtStart())
    {
        return true;
    }
    const SLaneRule& rule = GetLaneRule(nOp);
    CParts parts;
    AddParts(nOp, rule, parts);
    if (rule.eForm != ELaneForm::SCALAR || parts.empty())
    {
        return WriteParts(rule.eOut, parts);
    }
    SLaneRows rows = parts[0].rows;
    rows.d[0] = ToRow(Scratch());
    rows.d[1] = 0;
    uint32_t nWritten = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        nWritten += Writes(n) ? 1 : 0;
    }
    if (nWritten == 1)
    {
        return WriteParts(rule.eOut, parts);
    }
    EmitLane(nOp, rows);
    return WriteAll(rule.eOut, rows.d[0]);
}

/// The sum of the products of the first nCount components, from x on.
uint32_t CLowering::Dot(const SOperand& a, const SOperand& b, uint32_t nCount, bool bHalf)
{
    const T eType = bHalf ? T::H : T::F;
    uint32_t nSum = 0;
    for (uint32_t n = 0; n < nCount; ++n)
    {
        const uint32_t nProduct =
            Binary(bHalf ? LANE_HalfMultiply : LANE_Multiply, Source(a, n, eType), Source(b, n, eType));
        nSum = n == 0 ? nProduct : Binary(bHalf ? LANE_HalfAdd : LANE_FloatAdd, nSum, nProduct);
    }
    return nSum;
}

bool CLowering::LowerVectorProduct()
{
    const SOperand& a = Operand(0);
    const SOperand& b = Operand(m_pItem->nSources > 1 ? 1 : 0);
    switch (m_pItem->eOpCode)
    {
    case IL_OP_DP2:
        return WriteAll(T::F, Dot(a, b, 2, false));
    case IL_OP_DP3:
        return WriteAll(T::F, Dot(a, b, 3, false));
    case IL_OP_DP4:
        return WriteAll(T::F, Dot(a, b, 4, false));
    case IL_OP_DP2ADD:
        return WriteAll(T::F, Binary(LANE_FloatAdd, Dot(a, b, 2, false), Source(Operand(2), 3, T::F)));
    case IL_OP_F16_DP3:
        return WriteAll(T::H, Dot(a, b, 3, true));
    case IL_OP_F16_DP4:
        return WriteAll(T::H, Dot(a, b, 4, true));
    case IL_OP_LEN:
        return WriteAll(T::F, Unary(LANE_SquareRoot, Dot(a, a, 3, false)));
    case IL_OP_F16_LEN:
        return WriteAll(T::H, Unary(LANE_HalfSquareRoot, Dot(a, a, 3, true)));
    default:
        break;
    }
    // dist: the length of the difference.
    const bool bHalf = m_pItem->eOpCode == IL_OP_F16_DIST;
    const T eType = bHalf ? T::H : T::F;
    uint32_t nSum = 0;
    for (uint32_t n = 0; n < 3; ++n)
    {
        const uint32_t nDifference =
            Binary(bHalf ? LANE_HalfSubtract : LANE_FloatSubtract, Source(a, n, eType), Source(b, n, eType));
        const uint32_t nSquare = Binary(bHalf ? LANE_HalfMultiply : LANE_Multiply, nDifference, nDifference);
        nSum = n == 0 ? nSquare : Binary(bHalf ? LANE_HalfAdd : LANE_FloatAdd, nSum, nSquare);
    }
    return WriteAll(eType, Unary(bHalf ? LANE_HalfSquareRoot : LANE_SquareRoot, nSum));
}

bool CLowering::LowerNormalize(bool bHalf)
{
    const SOperand& a = Operand(0);
    const T eType = bHalf ? T::H : T::F;
    const uint32_t nFactor = Unary(bHalf ? LANE_HalfReciprocalRoot : LANE_ReciprocalRoot, Dot(a, a, 3, bHalf));
    uint32_t nRows[4];
    for (uint32_t n = 0; n < 4; ++n)
    {
        nRows[n] = Binary(bHalf ? LANE_HalfMultiply : LANE_Multiply, Source(a, n, eType), nFactor);
    }
    return WriteRows(eType, nRows);
}

/// a - 2 * dot(a, b) * b
bool CLowering::LowerReflect()
{
    const SOperand& a = Operand(0);
    const SOperand& b = Operand(1);
    const uint32_t nTwice = Binary(LANE_Multiply, Dot(a, b, 3, false), ConstantRow(FloatBits(2)));
    uint32_t nRows[4];
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint32_t nAlong = Binary(LANE_Multiply, nTwice, Source(b, n, T::F));
        nRows[n] = Binary(LANE_FloatSubtract, Source(a, n, T::F), nAlong);
    }
    return WriteRows(T::F, nRows);
}

/// The relation that the controls of compares, ifc, breakc and continuec name.
uint32_t CLowering::RelationRow(const SOperand& a, const SOperand& b)
{
    const uint32_t nRelation = m_pItem->Controls() & 7;
    if (nRelation > 5)
    {
        Fail("relation " + std::to_string(nRelation) + " isn't known");
        return s_nZeroRow;
    }
    return Binary(s_Relations[nRelation], Source(a, 0, T::F), Source(b, 0, T::F));
}

bool CLowering::LowerCompareSelect()
{
    const SOperand& a = Operand(0);
    const SOperand& b = Operand(1);
    const SOperand& destination = Destination();
    const uint32_t nRelation = m_pItem->Controls() & 7;
    if (m_pItem->eOpCode != IL_OP_CMOV && nRelation > 5)
    {
        return Fail("relation " + std::to_string(nRelation) + " isn't known");
    }
    uint32_t nRows[4] = {0, 0, 0, 0};
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (!Writes(n))
        {
            continue;
        }
        const uint32_t nFirst = Source(a, n, T::F);
        if (m_pItem->eOpCode == IL_OP_SET)
        {
            const uint32_t nMask = Binary(s_Relations[nRelation], nFirst, Source(b, n, T::F));
            nRows[n] = Binary(LANE_FAnd, nMask, ConstantRow(FloatBits(1)));
        }
        else if (m_pItem->eOpCode == IL_OP_CMP)
        {
            const uint32_t nMask = Binary(s_Relations[nRelation], nFirst, s_nZeroRow);
            const uint32_t nOther = Source(Operand(2), n, T::F);
            nRows[n] = Ternary(LANE_Select, nMask, Source(b, n, T::F), nOther);
        }
        else
        {
            // cmov leaves the destination unchanged where the condition is 0.
            SOperand old = destination;
            const uint32_t nMask = Binary(LANE_FNotEqual, nFirst, s_nZeroRow);
            nRows[n] = Ternary(LANE_Select, nMask, Source(b, n, T::F), Component(old, n));
        }
    }
    return WriteRows(T::F, nRows);
}

/// Sources: width, offset, the bits to insert, the value they are inserted into.
bool CLowering::LowerBitInsert()
{
    uint32_t nRows[4] = {0, 0, 0, 0};
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (!Writes(n))
        {
            continue;
        }
        uint32_t nSources[4];
        for (uint32_t i = 0; i < 4; ++i)
        {
            nSources[i] = Source(Operand(i), n, T::U);
        }
        const uint32_t nMask = Binary(LANE_IL_OP_BFM, nSources[0], nSources[1]);
        nRows[n] = Ternary(LANE_Insert, Binary(LANE_ShiftLeft, nSources[2], nSources[1]), nMask, nSources[3]);
    }
    return WriteRows(T::U, nRows);
}

bool CLowering::LowerSinCos()
{
    const uint32_t nAngle = Source(Operand(0), 3, T::F);
    const uint32_t nCos = Unary(LANE_IL_OP_COS, nAngle);
    const uint32_t nSin = Unary(LANE_IL_OP_SIN, nAngle);
    const uint32_t nRows[] = {nCos, nSin, s_nZeroRow, s_nZeroRow};
    return WriteRows(T::F, nRows);
}

/// Component n of the result compares the four bytes from byte n of a.xy with b.x, and adds c's component n.
bool CLowering::LowerQuadSad()
{
    const SOperand& a = Operand(0);
    const uint32_t nLow = Source(a, 0, T::U);
    const uint32_t nHigh = Source(a, 1, T::U);
    const uint32_t nPattern = Source(Operand(1), 0, T::U);
    uint32_t nRows[4];
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint32_t nBytes = Ternary(LANE_IL_OP_BYTE_ALIGN, nHigh, nLow, ConstantRow(n));
        nRows[n] = Ternary(LANE_IL_OP_MSAD_U8, nBytes, nPattern, Source(Operand(2), n, T::U));
    }
    return WriteRows(T::U, nRows);
}

bool CLowering::LowerSpecial()
{
    const uint32_t nOne = FloatBits(1);
    switch (m_pItem->eOpCode)
    {
    case IL_OP_NRM:
    case IL_OP_NRM_PRECISE:
        return LowerNormalize(false);
    case IL_OP_F16_NRM:
        return LowerNormalize(true);
    case IL_OP_REFLECT:
        return LowerReflect();
    case IL_OP_SET:
    case IL_OP_CMP:
    case IL_OP_CMOV:
        return LowerCompareSelect();
    case IL_OP_U_BIT_INSERT:
        return LowerBitInsert();
    case IL_OP_SINCOS:
    case IL_OP_DXSINCOS:
        return LowerSinCos();
    case IL_OP_MOVA:
        return LowerRule((m_pItem->Controls() & 1) ? LANE_NearestToInt : LANE_FloorToInt);
    case IL_OP_I_FIRSTBIT:
    {
        const ELaneOp s_Kinds[] = {LANE_FindFirstLow, LANE_FindFirstHigh, LANE_FindFirstHighSigned, LANE_FindFirstLow};
        return LowerRule(s_Kinds[m_pItem->Controls() & 3]);
    }
    case IL_OP_FACEFORWARD:
    case IL_OP_F16_FACEFORWARD:
    {
        const bool bHalf = m_pItem->eOpCode == IL_OP_F16_FACEFORWARD;
        const uint32_t nDot = Dot(Operand(1), Operand(2), 3, bHalf);
        uint32_t nRows[4];
        for (uint32_t n = 0; n < 4; ++n)
        {
            const uint32_t nNormal = Source(Operand(0), n, bHalf ? T::H : T::F);
            nRows[n] = Binary(bHalf ? LANE_HalfFaceForward : LANE_FaceForward, nNormal, nDot);
        }
        return WriteRows(bHalf ? T::H : T::F, nRows);
    }
    case IL_OP_CRS:
    {
        const SOperand& a = Operand(0);
        const SOperand& b = Operand(1);
        uint32_t nRows[4] = {0, 0, 0, s_nZeroRow};
        for (uint32_t n = 0; n < 3; ++n)
        {
            const uint32_t i = (n + 1) % 3;
            const uint32_t j = (n + 2) % 3;
            const uint32_t nFirst = Binary(LANE_Multiply, Source(a, i, T::F), Source(b, j, T::F));
            nRows[n] =
                Binary(LANE_FloatSubtract, nFirst, Binary(LANE_Multiply, Source(a, j, T::F), Source(b, i, T::F)));
        }
        return WriteRows(T::F, nRows);
    }
    case IL_OP_DST:
    {
        const SOperand& a = Operand(0);
        const SOperand& b = Operand(1);
        const uint32_t nRows[] = {ConstantRow(nOne), Binary(LANE_Multiply, Source(a, 1, T::F), Source(b, 1, T::F)),
                                  Source(a, 2, T::F), Source(b, 3, T::F)};
        return WriteRows(T::F, nRows);
    }
    case IL_OP_LIT:
    {
        const SOperand& a = Operand(0);
        const uint32_t nDiffuse = Source(a, 0, T::F);
        const uint32_t nRows[] = {ConstantRow(nOne), Binary(LANE_FloatMaximum, nDiffuse, s_nZeroRow),
                                  Ternary(LANE_LitSpecular, nDiffuse, Source(a, 1, T::F), Source(a, 3, T::F)),
                                  ConstantRow(nOne)};
        return WriteRows(T::F, nRows);
    }
    case IL_OP_F_2_U4:
    {
        uint32_t nPacked = s_nZeroRow;
        for (uint32_t n = 0; n < 4; ++n)
        {
            nPacked = Ternary(LANE_IL_OP_PACK_X_U8_F32, Source(Operand(0), n, T::F), ConstantRow(n), nPacked);
        }
        return WriteAll(T::U, nPacked);
    }
    case IL_OP_SAD_4:
    {
        uint32_t nSum = Source(Operand(2), 0, T::U);
        for (uint32_t n = 0; n < 4; ++n)
        {
            nSum = Ternary(LANE_IL_OP_SAD, Source(Operand(0), n, T::U), Source(Operand(1), n, T::U), nSum);
        }
        return WriteAll(T::U, nSum);
    }
    case IL_OP_D_FREXP:
    {
        SLaneRows rows;
        SourcePair(Operand(0), 0, T::D, rows.s);
        rows.d[0] = ToRow(Scratch());
        rows.d[1] = ToRow(Scratch());
        EmitLane(LANE_IL_OP_D_FREXP_MANT, rows);
        const uint32_t nMantissa[] = {rows.d[0], rows.d[1]};
        rows.d[0] = ToRow(Scratch());
        rows.d[1] = 0;
        EmitLane(LANE_IL_OP_D_FREXP_EXP, rows);
        const uint32_t nRows[] = {nMantissa[0], nMantissa[1], rows.d[0], s_nZeroRow};
        return WriteRows(T::U, nRows);
    }
    case IL_OP_FENCE:
        if (m_pItem->Controls() & s_nFenceMemory)
        {
            EmitStep(MICRO_FENCE);
        }
        if (m_pItem->Controls() & 1)
        {
            EmitFlow(MICRO_BARRIER);
            m_Code.bBarriers = true;
        }
        return true;
    case IL_OP_MQSAD_U32_U8:
        return LowerQuadSad();
    case IL_OP_BALLOT:
    case IL_OP_MBCNT:
    case IL_OP_READFIRSTLANE:
    case IL_OP_READLANE:
    case IL_OP_LANE_ID:
    case IL_OP_WAVE_ID:
        return LowerWave();
    case IL_OP_SAMPLE_RETURN_CODE:
        return LowerFixedAnswer();
    default:
        return LowerVectorProduct();
    }
}

} // namespace KestrelPlatform
