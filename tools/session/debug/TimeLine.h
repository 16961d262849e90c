#ifndef KESTREL_TOOLS_DEBUG_TIMELINE_H
#define KESTREL_TOOLS_DEBUG_TIMELINE_H

#include "tools/session/debug/CodeMap.h"

#include "OVKKestrel.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace KestrelTool
{

/// The stops of a launch in the order of execution, and the moves that lead from one to the next. The same moves lead
/// to the same stops again, forward and after going back to the first one. A way back moves along it where the place it
/// comes to is known to be one of its own; what goes on elsewhere makes a new end.
class CTimeLine
{
public:
    using Lines = std::set<unsigned int>;

    /// How a place was come to from the one before it.
    struct SMove
    {
        ovkclDebugCommand command;
        std::shared_ptr<const Lines> pStops; ///< of a run: the lines at which it could stop
        unsigned int nLine;                  ///< where it came to
    };

    /// Where somebody has been shown the session.
    struct SStop
    {
        size_t nPlace = 0; ///< moves from the first place
        unsigned int nLine = 0;
        size_t nActive = 0;
    };

    /// A launch begins.
    void Begin(unsigned int nLine);
    /// A movement is under way of which it isn't known where it ends if it is broken off.
    void Lose() { m_Here.reset(); }
    /// A movement from a place has come to a line.
    void Arrive(const CCodeMap& code, std::optional<size_t> from, const SMove& move);
    /// The present place is shown.
    void Show(size_t nActive);

    /// Counts how often stops were forgotten: until then a place stays what it is.
    uint64_t GetGeneration() const { return m_nGeneration; }

    const std::vector<SStop>& GetStops() const { return m_vStops; }
    /// The present place; nothing if it is none of the time line's.
    std::optional<size_t> GetPlace() const { return m_Here; }
    unsigned int GetLine(size_t nPlace) const { return nPlace == 0 ? m_nFirstLine : m_vMoves[nPlace - 1].nLine; }
    /// The move that leads to a place, not the first one.
    const SMove& GetMove(size_t nPlace) const { return m_vMoves[nPlace - 1]; }
    /// How many runs back to its line lead from the present place to an earlier one; nothing if that isn't sure.
    std::optional<size_t> CountRunsBack(const CCodeMap& code, size_t nPlace) const;

private:
    std::optional<size_t> FindBefore(const CCodeMap& code, size_t nFrom, const SMove& move) const;
    std::optional<size_t> FindAfter(size_t nFrom, const SMove& move) const;
    void Append(size_t nFrom, const SMove& move);

    unsigned int m_nFirstLine = 0;
    std::vector<SMove> m_vMoves;
    std::vector<SStop> m_vStops; ///< by their places
    std::optional<size_t> m_Here;
    uint64_t m_nGeneration = 0;
};

} // namespace KestrelTool

#endif
