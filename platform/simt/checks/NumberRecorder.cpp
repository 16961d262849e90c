#include "platform/simt/checks/NumberRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/FloatBits.h"
#include "platform/simt/checks/Findings.h"
#include "platform/simt/checks/ShadowRules.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

namespace KestrelPlatform
{

/// The fault that an integer operation is checked for, and the width of its operand.
struct SIntegerRule
{
    uint32_t nFault = 0;
    uint32_t nWidth = 32;
    double fLow = 0; ///< of a conversion: values between these two fit when truncated
    double fHigh = 0;
};

/// How a lane operation is checked.
struct SNumberRule
{
    uint32_t nExponent = 0; ///< of the result, as from ExponentOf
    bool bNoted = false;    ///< plain arithmetic: making NaN or infinity sets flags of the processor
    SIntegerRule integers;
};

namespace
{

/// The bits of the exponent, which are all set in NaN and infinity only; 0 for a type that isn't floating-point. Those
/// of a double are in its second word.
uint32_t ExponentOf(ELaneType eType)
{
    switch (eType)
    {
    case ELaneType::F:
        return 0x7F800000;
    case ELaneType::D:
        return 0x7FF00000;
    case ELaneType::H:
        return 0x7C00;
    default:
        return 0;
    }
}

enum ENumber
{
    Finite,
    Infinite,
    NotANumber
};

ENumber LookAt(ELaneType eType, uint32_t nLow, uint32_t nHigh)
{
    const uint32_t nExponent = ExponentOf(eType);
    const uint32_t nWord = eType == ELaneType::D ? nHigh : nLow;
    if (nExponent == 0 || (nWord & nExponent) != nExponent)
    {
        return Finite;
    }
    const uint32_t nFraction = (nExponent & (0u - nExponent)) - 1;
    return (nWord & nFraction) != 0 || (eType == ELaneType::D && nLow != 0) ? NotANumber : Infinite;
}

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

/// Which of a number's words tells whether it is finite. What is known of a number is kept for that word's row.
uint32_t GetTellingWord(ELaneType eType)
{
    return eType == ELaneType::D ? 1 : 0;
}

SIntegerRule FindIntegerRule(uint32_t nOp)
{
    switch (nOp)
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

/// A quick test of a row. It ignores the mask, and second words of 64-bit operands, so false means only that each lane
/// has to be checked.
bool AreAllRight(const SIntegerRule& rule, ELaneType eType, const uint32_t* pFirst, const uint32_t* pSecond,
                 uint32_t nBegin, uint32_t nEnd)
{
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
    else if (eType == ELaneType::F)
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

void CNumberRecorder::CheckIntegers(const CBlock& block, const SMicroOp& step)
{
    const SIntegerRule& rule = m_pRules[step.nOp].integers;
    const ELaneType eType = GetLaneRule(step.nOp).eIn[0];
    const bool bUniform = step.eKind == MICRO_LANE_UNIFORM;
    const uint32_t nBegin = bUniform ? 0 : block.GetFirstLane();
    // A literal is the same in all lanes.
    const bool bOne = bUniform || m_vLiterals[step.rows.s[rule.nFault == PLATFORM_FAULT_RANGE ? 0 : 2]];
    if (AreAllRight(rule, eType, block.Row(step.rows.s[0]), block.Row(step.rows.s[2]), nBegin,
                    bOne ? nBegin + 1 : block.GetEndLane()))
    {
        return;
    }
    for (uint32_t i = block.GetFirstLane(); i < block.GetEndLane(); ++i)
    {
        const uint32_t n = bUniform ? 0 : i;
        if (!block.IsActive(i))
        {
            continue;
        }
        const auto word = [&](uint32_t nSource) { return block.Row(step.rows.s[nSource])[n]; };
        bool bWrong = false;
        if (rule.nFault == PLATFORM_FAULT_DIVISION)
        {
            bWrong = (word(2) | (rule.nWidth == 64 ? word(3) : 0)) == 0;
        }
        else if (rule.nFault == PLATFORM_FAULT_SHIFT)
        {
            bWrong = word(2) >= rule.nWidth;
        }
        else if (LookAt(eType, word(0), word(1)) == Finite)
        {
            const double fValue = NumberOf(eType, word(0), word(1));
            bWrong = fValue <= rule.fLow || fValue >= rule.fHigh;
        }
        if (bWrong)
        {
            Tell(block, step.nInstruction, i, rule.nFault);
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
        CheckIntegers(block, step);
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
