#ifndef KESTREL_PLATFORM_SIMT_ROWVISITS_H
#define KESTREL_PLATFORM_SIMT_ROWVISITS_H

#include "platform/simt/Program.h"

namespace KestrelPlatform
{

inline bool IsLaneOperation(const SMicroOp& step)
{
    return step.eKind <= MICRO_LANE_UNIFORM;
}

/// True if the steps before and after it run one after the other for the same work-items.
inline bool IsStraight(const SMicroOp& step)
{
    return step.eKind < MICRO_ENTER || step.eKind > MICRO_BARRIER;
}

/// Calls visit with the number of each step that isn't dropped. nPiece numbers the straight-line pieces, counting on
/// from its initial value.
template <class F>
void ForEachStepOfPieces(const SCode& code, const std::vector<char>& vDropped, uint32_t& nPiece, F&& visit)
{
    ++nPiece;
    for (size_t n = 0; n < vDropped.size(); ++n)
    {
        nPiece += IsStraight(code.vSteps[n]) ? 0 : 1;
        if (!vDropped[n])
        {
            visit(n);
        }
    }
}

/// Skips fields without a row, which are the majority.
template <class TRow, class F>
void ForEach(const TRow* pRows, size_t nCount, F&& visit)
{
    for (size_t n = 0; n < nCount; ++n)
    {
        if (pRows[n] > s_nZeroRow)
        {
            visit(pRows[n]);
        }
    }
}

template <class F>
void ForEachRead(const SAccess& access, F&& visit)
{
    if (access.bScaled)
    {
        ForEach(&access.nIndexRow, 1, visit);
        ForEach(&access.nScaleRow, 1, visit);
        ForEach(access.nBaseRows, 2, visit);
    }
    else
    {
        ForEach(access.nAddressRows, 2, visit);
    }
    ForEach(access.nValueRows, 4, visit);
    if (access.eOperation == SAccess::Store)
    {
        ForEach(access.nRows, 4, visit);
    }
}

/// Calls visit with the rows that a step reads. Unused fields give row 0 or 1.
template <class F>
void ForEachRead(const SCode& code, const SMicroOp& step, F&& visit)
{
    switch (step.eKind)
    {
    case MICRO_LANE_FAST:
    case MICRO_LANE_SLOW:
    case MICRO_LANE_UNIFORM:
    case MICRO_WAVE:
        ForEach(step.rows.s, 6, visit);
        break;
    case MICRO_ACCESS:
        ForEachRead(code.vAccesses[step.nAux], visit);
        break;
    case MICRO_IMAGE:
    {
        const SImageAccess& image = code.vImages[step.nAux];
        ForEach(image.nCoordinates, 4, visit);
        ForEach(image.nOffsets, 2, visit);
        visit(image.nReference);
        if (image.eOperation == SImageAccess::UavStore)
        {
            ForEach(image.nRows, 4, visit);
        }
        for (uint32_t n = 0; n < image.nFlatAccesses; ++n)
        {
            ForEachRead(code.vAccesses[image.nFirstFlatAccess + n], visit);
        }
        break;
    }
    case MICRO_INDEX_STORE:
        ForEach(step.rows.s, 5, visit);
        break;
    case MICRO_INDEX_LOAD:
    case MICRO_IF:
    case MICRO_LEAVE_IF:
    case MICRO_SWITCH:
    case MICRO_CALL:
        visit(step.rows.s[0]);
        break;
    default:
        break;
    }
}

/// Calls visit with the rows that a step writes for its work-items, except those of arrays; 0 for none.
template <class F>
void ForEachWritten(const SCode& code, const SMicroOp& step, F&& visit)
{
    switch (step.eKind)
    {
    case MICRO_LANE_FAST:
    case MICRO_LANE_SLOW:
    case MICRO_LANE_UNIFORM:
    case MICRO_WAVE:
        ForEach(step.rows.d, 2, visit);
        break;
    case MICRO_ACCESS:
        if (code.vAccesses[step.nAux].eOperation != SAccess::Store)
        {
            ForEach(code.vAccesses[step.nAux].nRows, 4, visit);
        }
        break;
    case MICRO_IMAGE:
        if (code.vImages[step.nAux].eOperation != SImageAccess::UavStore)
        {
            ForEach(code.vImages[step.nAux].nRows, 4, visit);
        }
        break;
    case MICRO_INDEX_LOAD:
        visit(step.rows.d[0]);
        break;
    default:
        break;
    }
}

/// Calls visit with the rows that are accessed by an index or an address, and with the mask's.
template <class F>
void ForEachPinned(const SCode& code, F&& visit)
{
    const auto pin = [&visit](uint32_t nFirst, uint32_t nCount)
    {
        for (uint32_t n = nFirst; n < nFirst + nCount; ++n)
        {
            visit(n);
        }
    };
    for (const SIndexed& indexed : code.vIndexed)
    {
        if (!indexed.bConstant)
        {
            pin(code.vArrays[indexed.nArray].nRow, code.vArrays[indexed.nArray].nElements * 4);
        }
    }
    for (const SAccess& access : code.vAccesses)
    {
        if (access.eSpace == SAccess::Private)
        {
            pin(code.vPrivate[access.nArea].nRow, code.vPrivate[access.nArea].nBytes / 4);
        }
    }
    pin(s_nMaskRow, 1);
}

} // namespace KestrelPlatform

#endif
