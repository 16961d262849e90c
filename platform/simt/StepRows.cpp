#include "platform/simt/StepRows.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

template <class TRow, class F>
void ForEach(const TRow* pRows, size_t nCount, F&& visit)
{
    for (size_t n = 0; n < nCount; ++n)
        visit(pRows[n]);
}

template <class F>
void ForEachRead(const SAccess& access, F&& visit)
{
    ForEach(access.nAddressRows, 2, visit);
    ForEach(access.nValueRows, 4, visit);
    if (access.eOperation == SAccess::Store)
        ForEach(access.nRows, 4, visit);
}

/// Calls visit with the rows that a step reads. What has none stands for itself as row 0 or 1.
template <class F>
void ForEachRead(const SCode& code, const SMicroOp& step, F&& visit)
{
    switch (step.eKind)
    {
    case MICRO_LANE_FAST:
    case MICRO_LANE_SLOW:
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
            ForEach(image.nRows, 4, visit);
        for (uint32_t n = 0; n < image.nFlatAccesses; ++n)
            ForEachRead(code.vAccesses[image.nFirstFlatAccess + n], visit);
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

template <class F>
void ForEachWritten(const SCode& code, const SMicroOp& step, F&& visit)
{
    switch (step.eKind)
    {
    case MICRO_LANE_FAST:
    case MICRO_LANE_SLOW:
    case MICRO_WAVE:
        ForEach(step.rows.d, 2, visit);
        break;
    case MICRO_ACCESS:
        if (code.vAccesses[step.nAux].eOperation != SAccess::Store)
            ForEach(code.vAccesses[step.nAux].nRows, 4, visit);
        break;
    case MICRO_IMAGE:
        if (code.vImages[step.nAux].eOperation != SImageAccess::UavStore)
            ForEach(code.vImages[step.nAux].nRows, 4, visit);
        break;
    case MICRO_INDEX_LOAD:
        visit(step.rows.d[0]);
        break;
    default:
        break;
    }
}

/// Marks from the end, so that what only a dropped step reads is dropped, too.
size_t MarkUnread(const SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
{
    size_t nDropped = 0;
    for (size_t n = code.vSteps.size(); n-- > 0;)
    {
        const SMicroOp& step = code.vSteps[n];
        const bool bLane = step.eKind == MICRO_LANE_FAST || step.eKind == MICRO_LANE_SLOW;
        // An operation of one result has row 0 for the second.
        const bool bSecondRead = step.rows.d[1] != 0 && vReads[step.rows.d[1]] != 0;
        if (!bLane || vReads[step.rows.d[0]] != 0 || bSecondRead)
            continue;
        vDropped[n] = 1;
        ++nDropped;
        ForEachRead(code, step, [&vReads](uint32_t nRow) { --vReads[nRow]; });
    }
    return nDropped;
}

} // namespace

std::vector<uint32_t> CountReads(const SCode& code)
{
    std::vector<uint32_t> vReads(code.nRows, 0);
    for (const SMicroOp& step : code.vSteps)
        ForEachRead(code, step, [&vReads](uint32_t nRow) { ++vReads[nRow]; });
    const auto pin = [&vReads](uint32_t nFirst, uint32_t nCount)
    {
        for (uint32_t n = nFirst; n < nFirst + nCount; ++n)
            ++vReads[n];
    };
    for (const SIndexed& indexed : code.vIndexed)
    {
        if (!indexed.bConstant)
            pin(code.vArrays[indexed.nArray].nRow, code.vArrays[indexed.nArray].nElements * 4);
    }
    for (const SCode::SPrivate& area : code.vPrivate)
        pin(area.nRow, area.nBytes / 4);
    pin(s_nMaskRow, 1);
    return vReads;
}

void DropUnreadSteps(SCode& code, std::vector<uint32_t>& vReads)
{
    std::vector<char> vDropped(code.vSteps.size(), 0);
    if (MarkUnread(code, vReads, vDropped) == 0)
        return;
    std::vector<uint32_t> vPlaces(code.vSteps.size() + 1, 0);
    uint32_t nKept = 0;
    for (size_t n = 0; n < code.vSteps.size(); ++n)
    {
        vPlaces[n] = nKept;
        if (!vDropped[n])
            code.vSteps[nKept++] = code.vSteps[n];
    }
    vPlaces[code.vSteps.size()] = nKept;
    code.vSteps.resize(nKept);
    for (SMicroOp& step : code.vSteps)
    {
        step.nTarget = vPlaces[step.nTarget];
        if (step.eKind == MICRO_END_LOOP)
            step.nAux = vPlaces[step.nAux];
    }
    for (uint32_t& nEntry : code.vBodyEntries)
        nEntry = vPlaces[nEntry];
}

void KeepRowsToClear(SCode& code, const std::vector<uint32_t>& vReads)
{
    enum EUse : char
    {
        NotAsked,
        Unseen,
        ReadFirst,
        WrittenFirst
    };
    std::vector<char> vUse(code.nRows, NotAsked);
    size_t nLeft = 0;
    for (const uint32_t nRow : code.vClearRows)
    {
        vUse[nRow] = vReads[nRow] != 0 ? Unseen : NotAsked;
        nLeft += vReads[nRow] != 0 ? 1 : 0;
    }
    std::vector<uint32_t> vReturns;
    uint32_t nStep = code.vBodyEntries[0];
    for (size_t nBudget = code.vSteps.size(); nBudget > 0 && nLeft > 0; --nBudget)
    {
        const SMicroOp& step = code.vSteps[nStep++];
        if (step.eKind == MICRO_CALL && !(step.nFlags & s_nFlagConditional))
        {
            vReturns.push_back(nStep);
            nStep = code.vBodyEntries[step.nAux];
            continue;
        }
        if (step.eKind == MICRO_END_BODY && !vReturns.empty())
        {
            nStep = vReturns.back();
            vReturns.pop_back();
            continue;
        }
        const bool bStraight = step.eKind <= MICRO_ENTER || step.eKind >= MICRO_BARRIER;
        if (!bStraight)
            break;
        const auto mark = [&vUse, &nLeft](EUse eUse)
        {
            return [&vUse, &nLeft, eUse](uint32_t nRow)
            {
                nLeft -= vUse[nRow] == Unseen ? 1 : 0;
                vUse[nRow] = vUse[nRow] == Unseen ? static_cast<char>(eUse) : vUse[nRow];
            };
        };
        ForEachRead(code, step, mark(ReadFirst));
        ForEachWritten(code, step, mark(WrittenFirst));
    }
    const auto isClean = [&](uint32_t nRow) { return vUse[nRow] == NotAsked || vUse[nRow] == WrittenFirst; };
    code.vClearRows.erase(std::remove_if(code.vClearRows.begin(), code.vClearRows.end(), isClean),
                          code.vClearRows.end());
}

} // namespace KestrelPlatform
