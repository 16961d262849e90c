#include "platform/simt/StepRows.h"

#include "platform/simt/RowVisits.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

void Drop(const SCode& code, size_t nStep, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
{
    vDropped[nStep] = 1;
    ForEachRead(code, code.vSteps[nStep], [&vReads](uint32_t nRow) { --vReads[nRow]; });
}

/// Marks steps whose results are overwritten for the same work-items before anything reads them, as in a kernel that
/// first sets its registers to 0. Goes backwards through straight-line pieces, and continues from the start of a called
/// body to the steps before the call; bodies come after their callers.
class COverwritten
{
public:
    explicit COverwritten(const SCode& code)
        : m_Code(code), m_vMarks(code.nRows, 0), m_vAtEntry(code.vBodyEntries.size())
    {
        ForEachPinned(code, [this](uint32_t nRow) { m_vMarks[nRow] = s_nPinned; });
    }

    void Mark(std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
    {
        for (size_t n = m_Code.vSteps.size(); n-- > 0;)
        {
            const SMicroOp& step = m_Code.vSteps[n];
            if (!IsStraight(step))
            {
                Border(step);
            }
            else if (IsLaneOperation(step) && Holds(step.rows.d[0]) && (step.rows.d[1] == 0 || Holds(step.rows.d[1])))
            {
                Drop(m_Code, n, vReads, vDropped);
            }
            else
            {
                Note(step);
            }
        }
    }

private:
    static constexpr uint32_t s_nPinned = ~0u;
    /// Limits the rows that a body hands to its caller: along a chain of calls they would become ever more.
    static constexpr size_t s_nMostAtEntry = 1024;

    bool Holds(uint32_t nRow) const { return m_vMarks[nRow] == m_nPiece; }

    void Set(uint32_t nRow)
    {
        if (m_vMarks[nRow] == s_nPinned || Holds(nRow))
        {
            return;
        }
        m_vMarks[nRow] = m_nPiece;
        m_vSet.push_back(nRow);
    }

    void Note(const SMicroOp& step)
    {
        const bool bLoad = step.eKind == MICRO_ACCESS && m_Code.vAccesses[step.nAux].eOperation == SAccess::Load;
        if (IsLaneOperation(step) || bLoad)
        {
            ForEachWritten(m_Code, step, [this](uint32_t nRow) { Set(nRow); });
        }
        ForEachRead(m_Code, step,
                    [this](uint32_t nRow) { m_vMarks[nRow] = m_vMarks[nRow] == s_nPinned ? s_nPinned : 0; });
    }

    void Border(const SMicroOp& step)
    {
        if (step.eKind == MICRO_ENTER)
        {
            std::vector<uint32_t>& vRows = m_vAtEntry[step.nAux];
            for (const uint32_t nRow : m_vSet)
            {
                if (Holds(nRow) && vRows.size() < s_nMostAtEntry)
                {
                    vRows.push_back(nRow);
                }
            }
        }
        ++m_nPiece;
        m_vSet.clear();
        if (step.eKind == MICRO_CALL && !(step.nFlags & s_nFlagConditional))
        {
            for (const uint32_t nRow : m_vAtEntry[step.nAux])
            {
                Set(nRow);
            }
        }
    }

    const SCode& m_Code;
    uint32_t m_nPiece = 1;
    std::vector<uint32_t> m_vMarks; ///< by row: the piece in which it is written before it is read
    std::vector<uint32_t> m_vSet;   ///< rows that this piece has written, including some that are read since
    std::vector<std::vector<uint32_t>> m_vAtEntry;
};

/// Marks steps backwards, so that steps whose results only dropped steps read are dropped too.
void MarkUnread(const SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
{
    for (size_t n = code.vSteps.size(); n-- > 0;)
    {
        const SMicroOp& step = code.vSteps[n];
        // The second destination of an operation with one result is row 0.
        const bool bSecondRead = step.rows.d[1] != 0 && vReads[step.rows.d[1]] != 0;
        if (IsLaneOperation(step) && !vDropped[n] && vReads[step.rows.d[0]] == 0 && !bSecondRead)
        {
            Drop(code, n, vReads, vDropped);
        }
    }
}

/// Whether a step may read a row selected by an index or an address. A narrow store reads the rest of its word.
bool ReadsChosen(const SCode& code, const SMicroOp& step)
{
    return step.eKind == MICRO_INDEX_LOAD ||
           (step.eKind == MICRO_ACCESS && code.vAccesses[step.nAux].eSpace == SAccess::Private);
}

std::vector<char> FindWritten(const SCode& code)
{
    std::vector<char> vWritten(code.nRows, 0);
    for (const SMicroOp& step : code.vSteps)
    {
        ForEachWritten(code, step, [&vWritten](uint32_t nRow) { vWritten[nRow] = 1; });
    }
    ForEachPinned(code, [&vWritten](uint32_t nRow) { vWritten[nRow] = 1; });
    return vWritten;
}

} // namespace

std::vector<uint32_t> CountReads(const SCode& code)
{
    std::vector<uint32_t> vReads(code.nRows, 0);
    for (const SMicroOp& step : code.vSteps)
    {
        ForEachRead(code, step, [&vReads](uint32_t nRow) { ++vReads[nRow]; });
    }
    ForEachPinned(code, [&vReads](uint32_t nRow) { ++vReads[nRow]; });
    return vReads;
}

std::vector<char> MarkUnreadSteps(const SCode& code, std::vector<uint32_t>& vReads)
{
    std::vector<char> vDropped(code.vSteps.size(), 0);
    COverwritten(code).Mark(vReads, vDropped);
    MarkUnread(code, vReads, vDropped);
    return vDropped;
}

void RemoveSteps(SCode& code, const std::vector<char>& vMarks)
{
    std::vector<uint32_t> vPlaces(code.vSteps.size() + 1, 0);
    uint32_t nKept = 0;
    for (size_t n = 0; n < code.vSteps.size(); ++n)
    {
        vPlaces[n] = nKept;
        if (!vMarks[n])
        {
            code.vSteps[nKept++] = code.vSteps[n];
        }
    }
    vPlaces[code.vSteps.size()] = nKept;
    code.vSteps.resize(nKept);
    for (SMicroOp& step : code.vSteps)
    {
        step.nTarget = vPlaces[step.nTarget];
        if (step.eKind == MICRO_END_LOOP)
        {
            step.nAux = vPlaces[step.nAux];
        }
    }
    for (uint32_t& nEntry : code.vBodyEntries)
    {
        nEntry = vPlaces[nEntry];
    }
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
    const std::vector<char> vWritten = FindWritten(code);
    size_t nLeft = 0;
    for (const uint32_t nRow : code.vClearRows)
    {
        const bool bAsked = vReads[nRow] != 0 && vWritten[nRow];
        if (vReads[nRow] != 0 && !vWritten[nRow])
        {
            code.vUnwrittenRows.push_back(nRow);
        }
        vUse[nRow] = bAsked ? Unseen : NotAsked;
        nLeft += bAsked ? 1 : 0;
    }
    std::vector<uint32_t> vReturns;
    bool bChosen = false;
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
        if (!IsStraight(step) && step.eKind != MICRO_ENTER && step.eKind != MICRO_BARRIER)
        {
            break;
        }
        const auto mark = [&vUse, &nLeft](EUse eUse)
        {
            return [&vUse, &nLeft, eUse](uint32_t nRow)
            {
                nLeft -= vUse[nRow] == Unseen ? 1 : 0;
                vUse[nRow] = vUse[nRow] == Unseen ? static_cast<char>(eUse) : vUse[nRow];
            };
        };
        ForEachRead(code, step, mark(ReadFirst));
        if (!bChosen && ReadsChosen(code, step))
        {
            ForEachPinned(code, mark(ReadFirst));
            bChosen = true;
        }
        ForEachWritten(code, step, mark(WrittenFirst));
    }
    const auto isClean = [&](uint32_t nRow) { return vUse[nRow] == NotAsked || vUse[nRow] == WrittenFirst; };
    code.vClearRows.erase(std::remove_if(code.vClearRows.begin(), code.vClearRows.end(), isClean),
                          code.vClearRows.end());
}

} // namespace KestrelPlatform
