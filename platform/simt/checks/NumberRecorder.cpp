#include "platform/simt/checks/NumberRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"
#include "platform/simt/checks/FloatKind.h"
#include "platform/simt/checks/IntegerChecks.h"
#include "platform/simt/checks/ShadowRules.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace KestrelPlatform
{

/// How a lane operation is checked.
struct SNumberRule
{
    uint32_t nExponent = 0; ///< of the result, as from ExponentOf
    bool bNoted = false;    ///< plain arithmetic: making NaN or infinity sets flags of the processor
    SIntegerRule integers;
};

namespace
{

/// Which of a number's words tells whether it is finite. What is known of a number is kept for that word's row.
uint32_t GetTellingWord(ELaneType eType)
{
    return eType == ELaneType::D ? 1 : 0;
}

bool IsCopy(uint32_t nOp)
{
    return FindShadowRule(nOp) != SHADOW_ANY;
}

/// The flags that the processor sets when it makes NaN or infinity of other numbers.
const uint32_t s_nMakingFlags = _MM_EXCEPT_INVALID | _MM_EXCEPT_DIV_ZERO | _MM_EXCEPT_OVERFLOW;

/// Whether one of these flags was set since the last call. Clears them.
bool TakeFlags()
{
    const uint32_t nState = _mm_getcsr();
    if ((nState & s_nMakingFlags) == 0)
    {
        return false;
    }
    _mm_setcsr(nState & ~s_nMakingFlags);
    return true;
}

/// Whether a word is the usual NaN, as a float or as the upper word of a double. It may be a large integer all the
/// same.
bool IsNaNLiteral(uint32_t nWord)
{
    const uint32_t nSign = 0x80000000;
    return (nWord & ~nSign) == 0x7FC00000 || (nWord & ~nSign) == 0x7FF80000;
}

std::vector<SNumberRule> MakeRules()
{
    std::vector<SNumberRule> vRules(LANE_COUNT);
    for (uint32_t nOp = 0; nOp < LANE_COUNT; ++nOp)
    {
        const ELaneType eOut = GetLaneRule(nOp).eOut;
        vRules[nOp].nExponent = ExponentOf(eOut);
        vRules[nOp].bNoted = nOp < LANE_FIRST_SLOW && (eOut == ELaneType::F || eOut == ELaneType::D);
        vRules[nOp].integers = FindIntegerRule(nOp);
    }
    return vRules;
}

/// By operation.
const SNumberRule* GetRules()
{
    static const std::vector<SNumberRule> s_vRules = MakeRules();
    return s_vRules.data();
}

} // namespace

CNumberRecorder::CNumberRecorder(const SLaunchContext& context, CFindings& findings)
    : m_Context(context), m_Findings(findings), m_pRules(GetRules()), m_vMade(context.code.nRows),
      m_vLiterals(context.code.nRows)
{
    for (const SCode::SConstant& constant : context.code.vConstants)
    {
        m_vLiterals[constant.nRow] = constant.nBuffer < 0;
        if (constant.nBuffer < 0 && IsNaNLiteral(constant.nValue))
        {
            m_vNaNs.push_back(static_cast<uint16_t>(constant.nRow));
        }
    }
}

void CNumberRecorder::Start()
{
    m_Local = SMade();
    if (m_nKnown != 0)
    {
        std::fill(m_vMade.begin(), m_vMade.end(), SMade());
    }
    m_nKnown = 0;
    TakeFlags();
}

void CNumberRecorder::SetMade(uint32_t nRow, const SMade& made)
{
    m_nKnown += (made.IsKnown() ? 1u : 0u) - (m_vMade[nRow].IsKnown() ? 1u : 0u);
    m_vMade[nRow] = made;
}

void CNumberRecorder::Tell(const CBlock& block, uint32_t nInstruction, uint32_t nLane, uint32_t nFault)
{
    SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_NAN, nInstruction, block.GetWorkItem(nLane));
    finding.nFault = nFault;
    m_Findings.Add(finding);
}

/// Reports where NaN or infinity has been passed on, or which buffer it has reached, once for each place.
void CNumberRecorder::PassOn(const SMade& made, uint32_t nInstruction, uint64_t nOutput)
{
    if (!made.IsKnown() || !m_setPassed.insert({made.nInstruction, nInstruction, nOutput}).second)
    {
        return;
    }
    SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_NAN, made.nInstruction, ~uint64_t(0));
    finding.nFault = made.nFault;
    finding.nCount = 0;
    finding.nItems = 0;
    finding.nChain = made.nInstruction != nInstruction ? 1 : 0;
    finding.chain[0] = nInstruction;
    finding.nOriginAddress = made.nBuffer;
    finding.nOutputs = nOutput != 0 ? 1 : 0;
    finding.outputs[0] = nOutput;
    m_Findings.Add(finding);
}

void CNumberRecorder::CheckIntegers(const CBlock& block, const SMicroOp& step, const SIntegerRule& rule)
{
    const bool bUniform = step.eKind == MICRO_LANE_UNIFORM;
    const uint32_t nBegin = bUniform ? 0 : block.GetFirstLane();
    // A literal is the same in all lanes.
    const bool bOne = bUniform || m_vLiterals[step.rows.s[rule.nFault == PLATFORM_FAULT_RANGE ? 0 : 2]];
    if (AreIntegersRight(block, step, rule, nBegin, bOne ? nBegin + 1 : block.GetEndLane()))
    {
        return;
    }
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (block.IsActive(n) && IsIntegerWrong(block, step, rule, bUniform ? 0 : n))
        {
            Tell(block, step.nInstruction, n, rule.nFault);
        }
    }
}

/// Keeps operands that the step overwrites.
void CNumberRecorder::Stepping(const CBlock& block, const SMicroOp& step)
{
    m_nKept = 0;
    if (step.eKind > MICRO_LANE_UNIFORM)
    {
        return;
    }
    const SNumberRule& rule = m_pRules[step.nOp];
    if (rule.integers.nFault != 0)
    {
        CheckIntegers(block, step, rule.integers);
    }
    if (rule.nExponent == 0)
    {
        return;
    }
    for (const uint16_t nResult : step.rows.d)
    {
        const auto itEnd = step.rows.s + std::size(step.rows.s);
        if (nResult <= s_nZeroRow || std::find(step.rows.s, itEnd, nResult) == itEnd)
        {
            continue;
        }
        const uint32_t nBegin = step.eKind == MICRO_LANE_UNIFORM ? 0 : block.GetFirstLane();
        const uint32_t nEnd = step.eKind == MICRO_LANE_UNIFORM ? 1 : block.GetEndLane();
        std::memcpy(m_Kept[m_nKept].w + nBegin, block.Row(nResult) + nBegin, (nEnd - nBegin) * sizeof(uint32_t));
        m_KeptRows[m_nKept++] = nResult;
    }
}

const uint32_t* CNumberRecorder::Source(const CBlock& block, const SMicroOp& step, uint32_t nRow) const
{
    const uint16_t nSource = step.rows.s[nRow];
    const auto itEnd = m_KeptRows + m_nKept;
    const auto it = std::find(m_KeptRows, itEnd, nSource);
    return it == itEnd ? block.Row(nSource) : m_Kept[it - m_KeptRows].w;
}

/// Whether a row that the step has read or overwritten is known in m_vMade.
bool CNumberRecorder::TouchesKnown(const SMicroOp& step) const
{
    const auto isKnown = [this](uint16_t nRow) { return m_vMade[nRow].IsKnown(); };
    return m_nKnown != 0 && (std::any_of(std::begin(step.rows.s), std::end(step.rows.s), isKnown) ||
                             isKnown(step.rows.d[0]) || isKnown(step.rows.d[1]));
}

/// Forgets what the step's results have overwritten in all work-items. While some of them wait, they may still have it.
void CNumberRecorder::ForgetResults(const CBlock& block, const SMicroOp& step)
{
    for (const uint16_t nRow : step.rows.d)
    {
        if (m_nKnown == 0 || !m_vMade[nRow].IsKnown())
        {
            continue;
        }
        uint32_t n = block.GetFirstLane();
        while (n < block.GetEndLane() && block.IsActive(n))
        {
            ++n;
        }
        if (n == block.GetEndLane())
        {
            SetMade(nRow, SMade());
        }
    }
}

/// A function that has no result for an argument chooses NaN, where others would compute it. Only who uses what was
/// chosen has it: several choices may follow one another.
bool CNumberRecorder::LookForChosen(const CBlock& block, const SMicroOp& step)
{
    const auto isNaN = [&](uint32_t nSource)
    { return std::find(m_vNaNs.begin(), m_vNaNs.end(), step.rows.s[nSource]) != m_vNaNs.end(); };
    const bool bMove = step.nOp != LANE_IL_OP_CMOV_LOGICAL;
    const bool bFirst = isNaN(bMove ? 0 : 2);
    const bool bSecond = !bMove && isNaN(4);
    const uint32_t* const pConditions = Source(block, step, 0);
    for (uint32_t n = block.GetFirstLane(); (bFirst || bSecond) && n < block.GetEndLane(); ++n)
    {
        const bool bTakesFirst = bMove || pConditions[step.eKind == MICRO_LANE_UNIFORM ? 0 : n] != 0;
        if (block.IsActive(n) && (bTakesFirst ? bFirst : bSecond))
        {
            SetMade(step.rows.d[0], {step.nInstruction, PLATFORM_FAULT_NAN, 0, true});
            return true;
        }
    }
    return false;
}

/// Tells of a row's chosen NaN, which all active work-items store.
void CNumberRecorder::TellChosen(const CBlock& block, uint32_t nRow)
{
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (block.IsActive(n) && IsNaNLiteral(block.Row(nRow)[n]))
        {
            Tell(block, m_vMade[nRow].nInstruction, n, m_vMade[nRow].nFault);
        }
    }
    m_vMade[nRow].bChosen = false;
}

/// Rows whose chosen NaN has been told.
void CNumberRecorder::SettleChosen()
{
    for (const uint32_t nRow : m_vUsed)
    {
        m_vMade[nRow].bChosen = false;
    }
    m_vUsed.clear();
}

void CNumberRecorder::Stepped(const CBlock& block, const SMicroOp& step)
{
    const bool bChooses = step.nOp == LANE_Mov || step.nOp == LANE_IL_OP_MOV || step.nOp == LANE_IL_OP_CMOV_LOGICAL;
    if (bChooses && !m_vNaNs.empty() && LookForChosen(block, step))
    {
        return;
    }
    const SNumberRule& number = m_pRules[step.nOp];
    const uint32_t nExponent = number.nExponent;
    if (step.nOp == LANE_Mov && m_vMade[step.rows.s[0]].IsKnown())
    {
        SetMade(step.rows.d[0], m_vMade[step.rows.s[0]]);
        return;
    }
    if (nExponent == 0)
    {
        ForgetResults(block, step);
        return;
    }
    if (number.bNoted && !TakeFlags() && !TouchesKnown(step))
    {
        return;
    }
    const SLaneRule& rule = GetLaneRule(step.nOp);
    const uint32_t* const pResult = block.Row(step.rows.d[GetTellingWord(rule.eOut)]);
    const bool bUniform = step.eKind == MICRO_LANE_UNIFORM;
    const uint32_t nBegin = bUniform ? 0 : block.GetFirstLane();
    const uint32_t nEnd = bUniform ? 1 : block.GetEndLane();
    uint32_t nAny = 0;
    for (uint32_t n = nBegin; n < nEnd; ++n)
    {
        nAny |= (pResult[n] & nExponent) == nExponent ? 1 : 0;
    }
    if (nAny == 0)
    {
        ForgetResults(block, step);
        return;
    }
    for (uint32_t n = nBegin; n < nEnd; ++n)
    {
        uint32_t nItemLane = n;
        while (bUniform && nItemLane + 1 < block.GetEndLane() && !block.IsActive(nItemLane))
        {
            ++nItemLane;
        }
        if ((pResult[n] & nExponent) == nExponent && (bUniform || block.IsActive(n)))
        {
            LookAtLane(block, step, rule, n, nItemLane);
        }
    }
    SettleChosen();
}

void CNumberRecorder::LookAtLane(const CBlock& block, const SMicroOp& step, const SLaneRule& rule, uint32_t nLane,
                                 uint32_t nItemLane)
{
    const ENumber eResult = LookAt(rule.eOut, block.Row(step.rows.d[0])[nLane], block.Row(step.rows.d[1])[nLane]);
    ENumber eWorst = Finite;
    SMade made;
    uint32_t nFrom = 0;
    for (uint32_t i = 0; i < 3; ++i)
    {
        const ENumber eSource =
            LookAt(rule.eIn[i], Source(block, step, 2 * i)[nLane], Source(block, step, 2 * i + 1)[nLane]);
        eWorst = std::max(eWorst, eSource);
        if (eSource != Finite && !made.IsKnown())
        {
            nFrom = step.rows.s[2 * i + GetTellingWord(rule.eIn[i])];
            made = m_vMade[nFrom];
        }
    }
    const bool bNew = eWorst == Finite || (eResult == NotANumber && eWorst == Infinite && !made.IsKnown());
    // Copies and bit operations make no new number, and their operands may be integers that look like any number.
    if (bNew && !IsCopy(step.nOp))
    {
        made = {step.nInstruction, eResult == NotANumber ? PLATFORM_FAULT_NAN : PLATFORM_FAULT_INFINITY, 0};
        Tell(block, step.nInstruction, nItemLane, made.nFault);
    }
    else if (!made.bChosen)
    {
        PassOn(made, step.nInstruction, 0);
    }
    else if (!IsCopy(step.nOp))
    {
        Tell(block, made.nInstruction, nItemLane, made.nFault);
        m_vUsed.push_back(nFrom);
        made.bChosen = false;
        PassOn(made, step.nInstruction, 0);
    }
    SetMade(step.rows.d[GetTellingWord(rule.eOut)], made);
}

void CNumberRecorder::Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    if (access.eOperation == SAccess::Load)
    {
        return;
    }
    const uint32_t* const pRows = access.eOperation == SAccess::Atomic ? access.nValueRows : access.nRows;
    for (uint32_t w = 0; m_nKnown != 0 && w < access.nWords; ++w)
    {
        const SMade& made = m_vMade[pRows[w]];
        for (uint32_t n = block.GetFirstLane(); made.IsKnown() && n < block.GetEndLane(); ++n)
        {
            const uint32_t nWord = block.Row(pRows[w])[n];
            // Both words of a double that isn't finite are found: the low one by the high one, and that as a float.
            const uint32_t nHigh = w + 1 < access.nWords ? block.Row(pRows[w + 1])[n] : 0;
            const bool bNumber =
                LookAt(ELaneType::F, nWord, 0) != Finite || LookAt(ELaneType::D, nWord, nHigh) != Finite;
            if (!block.IsActive(n) || !bNumber)
            {
                continue;
            }
            if (made.bChosen)
            {
                TellChosen(block, pRows[w]);
            }
            if (access.eSpace == SAccess::Local)
            {
                m_Local = made;
            }
            uint64_t nAddress = 0;
            if (access.eSpace == SAccess::Global)
            {
                block.FillAddresses(access, n, n + 1, &nAddress);
            }
            const std::vector<SMemoryRange>& vMemory = m_Context.launch.vMemory;
            const auto it =
                std::upper_bound(vMemory.begin(), vMemory.end(), nAddress,
                                 [](uint64_t nWhat, const SMemoryRange& range) { return nWhat < range.nAddress; });
            PassOn(made, step.nInstruction, nAddress != 0 && it != vMemory.begin() ? (it - 1)->nAddress : 0);
            break;
        }
    }
}

/// Finds NaN or infinity that the step has loaded into a word from a buffer that is followed.
CNumberRecorder::SMade CNumberRecorder::FindCarried(const CBlock& block, const SMicroOp& step, const SAccess& access,
                                                    uint32_t nWord) const
{
    const uint32_t* const pWords = block.Row(access.nRows[nWord]);
    const uint32_t* const pHigh = nWord + 1 < access.nWords ? block.Row(access.nRows[nWord + 1]) : nullptr;
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        const bool bNumber = LookAt(ELaneType::F, pWords[n], 0) != Finite ||
                             (pHigh != nullptr && LookAt(ELaneType::D, pWords[n], pHigh[n]) != Finite);
        if (!bNumber || !block.IsActive(n))
        {
            continue;
        }
        uint64_t nAddress = 0;
        block.FillAddresses(access, n, n + 1, &nAddress);
        for (const SAddressRange& range : m_Context.launch.vFollowed)
        {
            if (nAddress >= range.nFirst && nAddress < range.nEnd)
            {
                return {step.nInstruction, PLATFORM_FAULT_CARRIED, range.nFirst};
            }
        }
    }
    return {};
}

/// Reports a load from local memory as passing on what was stored there.
void CNumberRecorder::NoteLoaded(const CBlock& block, const SMicroOp& step, uint32_t nRow)
{
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (block.IsActive(n) && LookAt(ELaneType::F, block.Row(nRow)[n], 0) != Finite)
        {
            PassOn(m_Local, step.nInstruction, 0);
            return;
        }
    }
}

/// What memory holds is known for local memory, and for buffers that are followed.
void CNumberRecorder::Accessed(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const bool bLocal = access.eSpace == SAccess::Local && m_Local.IsKnown();
    const bool bFollowed = access.eSpace == SAccess::Global && !m_Context.launch.vFollowed.empty();
    if (access.eOperation != SAccess::Load || (m_nKnown == 0 && !bLocal && !bFollowed))
    {
        return;
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        SetMade(access.nRows[w], bLocal ? m_Local : bFollowed ? FindCarried(block, step, access, w) : SMade());
        if (bLocal)
        {
            NoteLoaded(block, step, access.nRows[w]);
        }
    }
}

} // namespace KestrelPlatform
