#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

/// A step that counts the instructions since the last such step.
SMicroOp& CLowering::EmitFlow(EMicroKind eKind)
{
    m_Code.vSteps[m_nLastFlow].nFollow = m_nSinceFlow;
    m_nSinceFlow = 0;
    m_nLastFlow = static_cast<uint32_t>(m_Code.vSteps.size());
    SMicroOp step;
    step.eKind = eKind;
    step.nInstruction = m_nInstruction;
    m_Code.vSteps.push_back(step);
    return m_Code.vSteps.back();
}

/// The step may leave no work-item active: then it jumps to the next place of the open block where some may wait.
void CLowering::Pend(uint32_t nStep)
{
    m_vBlocks.back().vPending.push_back(nStep);
}

void CLowering::ResolvePending()
{
    for (uint32_t nStep : m_vBlocks.back().vPending)
    {
        m_Code.vSteps[nStep].nTarget = static_cast<uint32_t>(m_Code.vSteps.size());
    }
    m_vBlocks.back().vPending.clear();
}

bool CLowering::LowerBody(uint32_t nBody)
{
    const SBody& body = m_Structure.vBodies[nBody];
    m_nBody = nBody;
    m_vMaskRows.clear();
    m_nMaskRowsUsed = 0;
    m_vLoops.clear();
    m_vBreakables.clear();
    if (body.bReturns)
    {
        m_vReturnRows[nBody] = MaskRows(1);
    }
    m_bReturns = false;
    m_nLastFlow = static_cast<uint32_t>(m_Code.vSteps.size());
    m_nSinceFlow = 0;
    m_Code.vBodyEntries[nBody] = m_nLastFlow;
    SMicroOp enter;
    enter.eKind = MICRO_ENTER;
    enter.nAux = nBody;
    enter.rows.d[0] = ToRow(m_vReturnRows[nBody]);
    enter.nInstruction = SItem::NoInstruction;
    m_Code.vSteps.push_back(enter);
    m_vBlocks.push_back({{m_vReturnRows[nBody], 0, 0}, 0, 0, {}, {}});
    for (uint32_t n = 0; n < body.vItems.size(); ++n)
    {
        if (!LowerItem(n))
        {
            return false;
        }
    }
    ResolvePending();
    // A return directly before the end has no effect.
    if (!m_bReturns)
    {
        m_Code.vSteps[m_Code.vBodyEntries[nBody]].rows.d[0] = m_vReturnRows[nBody] = 0;
    }
    SMicroOp& end = EmitFlow(MICRO_END_BODY);
    end.nAux = nBody;
    end.rows.d[0] = ToRow(m_vReturnRows[nBody]);
    const bool bItem = !body.vItems.empty() && (m_pItem->eOpCode == IL_OP_ENDFUNC || m_pItem->eOpCode == IL_OP_ENDMAIN);
    end.nInstruction = bItem ? m_nInstruction : SItem::NoInstruction;
    m_vBlocks.pop_back();
    return true;
}

uint32_t CLowering::ConditionRow(ILOpCode eOpCode, bool& bInvert)
{
    bInvert = eOpCode == IL_OP_IF_LOGICALZ || eOpCode == IL_OP_BREAK_LOGICALZ || eOpCode == IL_OP_CONTINUE_LOGICALZ ||
              eOpCode == IL_OP_RET_LOGICALZ || eOpCode == IL_OP_CALL_LOGICALZ;
    if (m_pItem->nSources == 2)
    {
        return RelationRow(Operand(0), Operand(1));
    }
    return Source(Operand(0), 0, T::U);
}

/// True for a return at the end of its body, outside of every block: all work-items continue there anyway.
bool CLowering::EndsBody(ILOpCode eOpCode) const
{
    if ((eOpCode != IL_OP_RET && eOpCode != IL_OP_RET_DYN) || m_vBlocks.size() != 1)
    {
        return false;
    }
    const ILOpCode eNext = m_nItem + 1 < m_Stream.vItems.size() ? m_Stream.vItems[m_nItem + 1].eOpCode : IL_OP_UNKNOWN;
    return eNext == IL_OP_ENDFUNC || eNext == IL_OP_ENDMAIN || eNext == IL_OP_MACROEND;
}

/// break, continue and ret, with or without a condition.
void CLowering::LowerLeave(ILOpCode eOpCode)
{
    uint32_t nRow = m_vReturnRows[m_nBody];
    switch (eOpCode)
    {
    case IL_OP_BREAK:
    case IL_OP_BREAKC:
    case IL_OP_BREAK_LOGICALZ:
    case IL_OP_BREAK_LOGICALNZ:
        nRow = m_vBlocks[m_vBreakables.back()].nRows[0];
        break;
    case IL_OP_CONTINUE:
    case IL_OP_CONTINUEC:
    case IL_OP_CONTINUE_LOGICALZ:
    case IL_OP_CONTINUE_LOGICALNZ:
    {
        const SOpenBlock& loop = m_vBlocks[m_vLoops.back()];
        nRow = loop.nRows[1];
        m_Code.vSteps[loop.nStep].nFlags = s_nFlagConditional;
        break;
    }
    default:
        break;
    }
    bool bInvert = false;
    const bool bConditional = m_pItem->nSources != 0;
    if (!bConditional && !m_bTrace && EndsBody(eOpCode))
    {
        return;
    }
    m_bReturns = m_bReturns || nRow == m_vReturnRows[m_nBody];
    const uint32_t nCondition = bConditional ? ConditionRow(eOpCode, bInvert) : 0;
    SMicroOp& step = EmitFlow(bConditional ? MICRO_LEAVE_IF : MICRO_LEAVE);
    step.rows.d[0] = ToRow(nRow);
    step.rows.s[0] = ToRow(nCondition);
    step.nFlags = bInvert ? s_nFlagInvert : 0;
    if (!bConditional && (eOpCode == IL_OP_RET || eOpCode == IL_OP_RET_DYN))
    {
        step.nFlags = s_nFlagConditional; // traced with the work-items that leave: none stays
    }
    Pend(m_nLastFlow);
}

void CLowering::CloseBlock(EMicroKind eKind)
{
    const SOpenBlock block = m_vBlocks.back();
    ResolvePending();
    SMicroOp& step = EmitFlow(eKind);
    step.rows.d[0] = ToRow(block.nRows[0]);
    step.rows.d[1] = ToRow(block.nRows[1]);
    step.nAux = block.nStep;
    if (eKind == MICRO_END_LOOP)
    {
        step.nFlags = m_Code.vSteps[block.nStep].nFlags;
        m_Code.vSteps[block.nStep].nTarget = m_nLastFlow;
        m_vLoops.pop_back();
        m_nMaskRowsUsed -= 2;
    }
    if (eKind == MICRO_END_SWITCH)
    {
        if (block.nDefault)
        {
            SMicroOp& byDefault = m_Code.vSteps[block.nDefault];
            byDefault.nAux = static_cast<uint32_t>(m_Code.vCaseValues.size());
            m_Code.vCaseValues.push_back(static_cast<uint32_t>(block.vLaterCases.size()));
            m_Code.vCaseValues.insert(m_Code.vCaseValues.end(), block.vLaterCases.begin(), block.vLaterCases.end());
        }
        m_nMaskRowsUsed -= 3;
    }
    if (eKind == MICRO_END_IF)
    {
        m_nMaskRowsUsed -= 1;
    }
    else
    {
        m_vBreakables.pop_back();
    }
    m_vBlocks.pop_back();
    Pend(m_nLastFlow);
}

void CLowering::LowerSwitch()
{
    const uint32_t nSelector = Source(Operand(0), 0, T::U);
    const uint32_t nRow = MaskRows(1);
    const uint32_t nPending = MaskRows(1);
    const uint32_t nKept = MaskRows(1);
    SMicroOp& step = EmitFlow(MICRO_SWITCH);
    step.rows.d[0] = ToRow(nRow);
    step.rows.d[1] = ToRow(nPending);
    step.rows.s[0] = ToRow(nSelector);
    step.rows.s[1] = ToRow(nKept);
    m_vBreakables.push_back(m_vBlocks.size());
    m_vBlocks.push_back({{nRow, nPending, nKept}, m_nLastFlow, 0, {}, {}});
    Pend(m_nLastFlow);
}

void CLowering::LowerCase()
{
    ResolvePending();
    SOpenBlock& block = m_vBlocks.back();
    const bool bDefault = m_pItem->eOpCode == IL_OP_DEFAULT;
    SMicroOp& step = EmitFlow(bDefault ? MICRO_DEFAULT : MICRO_CASE);
    step.rows.d[1] = ToRow(block.nRows[1]);
    step.rows.s[1] = ToRow(block.nRows[2]);
    if (bDefault)
    {
        block.nDefault = m_nLastFlow;
    }
    else
    {
        step.nAux = m_Stream.Word(*m_pItem, 0);
        if (block.nDefault)
        {
            block.vLaterCases.push_back(step.nAux);
        }
    }
    Pend(m_nLastFlow);
}

bool CLowering::LowerCall()
{
    const bool bMacro = m_pItem->eOpCode == IL_OP_MACROCALL;
    const uint32_t nBody = bMacro ? m_Structure.mapMacros.at(m_pItem->Controls())
                                  : m_Structure.mapFunctions.at(m_Stream.Word(*m_pItem, 0));
    const bool bConditional = !bMacro && m_pItem->nSources != 0;
    bool bInvert = false;
    const uint32_t nCondition = bConditional ? ConditionRow(m_pItem->eOpCode, bInvert) : 0;
    for (uint32_t n = 0; bMacro && n < m_pItem->nSources; ++n)
    {
        const uint32_t nRow = RegisterRow(IL_REGTYPE_INPUT_ARG, static_cast<int32_t>(n), nBody);
        for (uint32_t i = 0; i < 4; ++i)
        {
            EmitMove(nRow + i, Source(Operand(n), i, T::F));
        }
        m_nScratchUsed = 0;
    }
    const uint32_t nResult = m_pItem->bDestination ? RegisterRow(IL_REGTYPE_OUTPUT_ARG, 0, nBody) : 0;
    for (uint32_t i = 0; nResult && i < 4; ++i)
    {
        EmitMove(nResult + i, s_nZeroRow);
    }
    const uint32_t nRest = bConditional ? MaskRows(1) : 0;
    SMicroOp& call = EmitFlow(MICRO_CALL);
    call.nAux = nBody;
    call.rows.d[0] = ToRow(nRest);
    call.rows.s[0] = ToRow(nCondition);
    call.nFlags = static_cast<uint16_t>((bInvert ? s_nFlagInvert : 0) | (bConditional ? s_nFlagConditional : 0));
    if (bConditional)
    {
        m_Code.vSteps[m_nLastFlow].nTarget = m_nLastFlow + 1;
        EmitFlow(MICRO_AFTER_CALL).rows.d[0] = ToRow(nRest);
        m_nMaskRowsUsed -= 1;
    }
    if (nResult)
    {
        const uint32_t nRows[] = {nResult, nResult + 1, nResult + 2, nResult + 3};
        if (!WriteRows(T::F, nRows))
        {
            return false;
        }
    }
    EmitTrace();
    return !m_bFailed;
}

bool CLowering::LowerFlow()
{
    switch (m_pItem->eOpCode)
    {
    case IL_OP_IFC:
    case IL_OP_IFNZ:
    case IL_OP_IF_LOGICALZ:
    case IL_OP_IF_LOGICALNZ:
    {
        bool bInvert = false;
        const uint32_t nCondition = ConditionRow(m_pItem->eOpCode, bInvert);
        const uint32_t nRow = MaskRows(1);
        SMicroOp& step = EmitFlow(MICRO_IF);
        step.rows.d[0] = ToRow(nRow);
        step.rows.s[0] = ToRow(nCondition);
        step.nFlags = bInvert ? s_nFlagInvert : 0;
        m_vBlocks.push_back({{nRow, 0, 0}, m_nLastFlow, 0, {}, {}});
        Pend(m_nLastFlow);
        return !m_bFailed;
    }
    case IL_OP_ELSE:
        ResolvePending();
        EmitFlow(MICRO_ELSE).rows.d[0] = ToRow(m_vBlocks.back().nRows[0]);
        Pend(m_nLastFlow);
        return true;
    case IL_OP_ENDIF:
        CloseBlock(MICRO_END_IF);
        return true;
    case IL_OP_WHILE:
    {
        const uint32_t nRow = MaskRows(1);
        const uint32_t nContinued = MaskRows(1);
        SMicroOp& step = EmitFlow(MICRO_LOOP);
        step.rows.d[0] = ToRow(nRow);
        step.rows.d[1] = ToRow(nContinued);
        m_vLoops.push_back(m_vBlocks.size());
        m_vBreakables.push_back(m_vBlocks.size());
        m_vBlocks.push_back({{nRow, nContinued, 0}, m_nLastFlow, 0, {}, {}});
        return true;
    }
    case IL_OP_ENDLOOP:
        CloseBlock(MICRO_END_LOOP);
        return true;
    case IL_OP_SWITCH:
        LowerSwitch();
        return !m_bFailed;
    case IL_OP_CASE:
    case IL_OP_DEFAULT:
        LowerCase();
        return true;
    case IL_OP_ENDSWITCH:
        CloseBlock(MICRO_END_SWITCH);
        return true;
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    case IL_OP_MACROCALL:
        return LowerCall();
    case IL_OP_FUNC:
        m_Code.vSteps[m_Code.vBodyEntries[m_nBody]].nInstruction = m_nInstruction;
        return true;
    case IL_OP_ENDFUNC:
    case IL_OP_ENDMAIN:
    case IL_OP_END:
        return true;
    default:
        LowerLeave(m_pItem->eOpCode);
        return !m_bFailed;
    }
}

} // namespace KestrelPlatform
