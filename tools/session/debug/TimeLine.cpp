#include "tools/session/debug/TimeLine.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

bool IsBack(const CTimeLine::SMove& move)
{
    return move.command == OVKCLDEBUG_COMMAND_EXT_STEP_BACK || move.command == OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
}

bool IsStep(const CTimeLine::SMove& move)
{
    return move.command == OVKCLDEBUG_COMMAND_STEP;
}

bool IsSame(const CTimeLine::SMove& first, const CTimeLine::SMove& second)
{
    return first.command == second.command && first.nLine == second.nLine &&
           (first.pStops == second.pStops ||
            (first.pStops != nullptr && second.pStops != nullptr && *first.pStops == *second.pStops));
}

/// Whether a move forward has come to a line in between, without a stop.
bool MayHavePassed(const CTimeLine::SMove& move, unsigned int nLine)
{
    return !IsStep(move) && move.pStops->count(nLine) == 0;
}

/// The same for the line that it began at.
bool MayHaveComeAgain(const CCodeMap& code, const CTimeLine::SMove& move, unsigned int nLine)
{
    return MayHavePassed(move, nLine) && code.MayComeAgain(nLine, *move.pStops);
}

/// Whether a known move forward stops wherever another one of the same place does, if not before.
bool StopsBefore(const CTimeLine::SMove& known, const CTimeLine::SMove& other)
{
    if (IsStep(known) || known.pStops == other.pStops)
    {
        return true;
    }
    return IsStep(other)
               ? known.pStops->count(other.nLine) != 0
               : std::includes(known.pStops->begin(), known.pStops->end(), other.pStops->begin(), other.pStops->end());
}

} // namespace

void CTimeLine::Begin(unsigned int nLine)
{
    m_nFirstLine = nLine;
    m_vMoves.clear();
    m_vStops.clear();
    m_Here = 0;
    ++m_nGeneration;
}

void CTimeLine::Arrive(const CCodeMap& code, std::optional<size_t> from, const SMove& move)
{
    if (IsBack(move) && move.nLine == m_nFirstLine)
    {
        m_Here = 0;
        return;
    }
    if (!from)
    {
        m_Here.reset();
        return;
    }
    if (*from < m_vMoves.size() && IsSame(GetMove(*from + 1), move))
    {
        m_Here = *from + 1;
        return;
    }
    m_Here = IsBack(move) ? FindBefore(code, *from, move) : FindAfter(*from, move);
    if (!m_Here)
    {
        Append(*from, move);
    }
}

/// A way back comes to the last place before that it can stop at.
std::optional<size_t> CTimeLine::FindBefore(const CCodeMap& code, size_t nFrom, const SMove& move) const
{
    const bool bStep = move.command == OVKCLDEBUG_COMMAND_EXT_STEP_BACK;
    for (size_t n = nFrom; n > 0; --n)
    {
        const SMove& passed = GetMove(n);
        if (IsBack(passed))
        {
            return std::nullopt;
        }
        if (GetLine(n - 1) == move.nLine)
        {
            return MayHaveComeAgain(code, passed, move.nLine) ? std::nullopt : std::optional<size_t>(n - 1);
        }
        if (bStep || MayHavePassed(passed, move.nLine))
        {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

/// A way forward comes to the first place after that it can stop at, if the moves that are known stop there too.
std::optional<size_t> CTimeLine::FindAfter(size_t nFrom, const SMove& move) const
{
    for (size_t n = nFrom + 1; n <= m_vMoves.size(); ++n)
    {
        const SMove& known = GetMove(n);
        const bool bFound = IsStep(move) || move.pStops->count(known.nLine) != 0;
        if (IsBack(known) || !StopsBefore(known, move) || (bFound && known.nLine != move.nLine))
        {
            return std::nullopt;
        }
        if (bFound)
        {
            return n;
        }
    }
    return std::nullopt;
}

void CTimeLine::Append(size_t nFrom, const SMove& move)
{
    m_nGeneration += m_vMoves.size() > nFrom ? 1 : 0;
    m_vMoves.resize(nFrom);
    while (!m_vStops.empty() && m_vStops.back().nPlace > nFrom)
    {
        m_vStops.pop_back();
    }
    m_vMoves.push_back(move);
    // The moves of a loop have the same stops, which needn't be there more than once.
    if (nFrom > 0 && move.pStops != nullptr && GetMove(nFrom).pStops != nullptr &&
        *GetMove(nFrom).pStops == *move.pStops)
    {
        m_vMoves.back().pStops = GetMove(nFrom).pStops;
    }
    m_Here = m_vMoves.size();
}

void CTimeLine::Show(size_t nActive)
{
    if (!m_Here)
    {
        return;
    }
    const auto it = std::lower_bound(m_vStops.begin(), m_vStops.end(), *m_Here,
                                     [](const SStop& stop, size_t nPlace) { return stop.nPlace < nPlace; });
    if (it == m_vStops.end() || it->nPlace != *m_Here)
    {
        m_vStops.insert(it, {*m_Here, GetLine(*m_Here), nActive});
    }
}

std::optional<size_t> CTimeLine::CountRunsBack(const CCodeMap& code, size_t nPlace) const
{
    const unsigned int nLine = GetLine(nPlace);
    size_t nRuns = 0;
    for (size_t n = *m_Here; n > nPlace; --n)
    {
        const bool bAtLine = GetLine(n - 1) == nLine;
        if (IsBack(GetMove(n)) ||
            (bAtLine ? MayHaveComeAgain(code, GetMove(n), nLine) : MayHavePassed(GetMove(n), nLine)))
        {
            return std::nullopt;
        }
        nRuns += bAtLine ? 1 : 0;
    }
    return nRuns;
}

} // namespace KestrelTool
