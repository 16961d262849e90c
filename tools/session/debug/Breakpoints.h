#ifndef KESTREL_TOOLS_DEBUG_BREAKPOINTS_H
#define KESTREL_TOOLS_DEBUG_BREAKPOINTS_H

#include "tools/session/debug/Expression.h"
#include "tools/session/debug/FaultStop.h"
#include "tools/session/debug/Watch.h"

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The place of a breakpoint that outlives a launch. It has lines only while a launch is debugged that contains the
/// place.
struct SLaunchPlace
{
    enum EKind
    {
        Line,   ///< lines of a certain kernel's text
        Kernel, ///< the entry of a kernel, or of a source function, by name
        Source, ///< a line of a file
        Launch  ///< the entry of launches, by number
    };

    EKind eKind = Line;
    std::string strKernel;        ///< for Launch: empty for any
    unsigned int nProgram = 0;    ///< for Line: the program's number
    std::set<unsigned int> lines; ///< for Line, of the text; for Kernel, where a function begins
    unsigned int nLine = 0;       ///< for Source: the line of the file
    std::string strFile;
    uint64_t nNumber = 0; ///< for Launch: number among all launches or the kernel's; 0 for each
};

/// A breakpoint of the user. Several may have the same line.
struct SBreakpoint
{
    unsigned int nId = 0;
    std::set<unsigned int> lines; ///< of IL, one for each inlined copy; none if the kernel doesn't contain its place
    std::optional<SLaunchPlace> place;
    bool bTemporary = false;
    bool bEnabled = true;
    std::string strCondition;                 ///< empty for none
    std::optional<CExpression> condition;     ///< the same, parsed for the current kernel on first use
    std::shared_ptr<const SWatch> pWatch;     ///< stops only if one of these accesses is about to happen; null for none
    std::shared_ptr<const SFaultStop> pFault; ///< the same for faults of the kernel
    size_t nIgnore = 0;                       ///< hits to be ignored
    size_t nHits = 0;
    std::vector<std::string> vCommands; ///< executed at a stop
    /// Called at each hit, after it is counted; false lets the kernel continue. If empty, each hit stops.
    std::function<bool(const SBreakpoint&)> isWanted;
};

/// The user's breakpoints. Their numbers are never reused.
class CBreakpoints
{
public:
    SBreakpoint& Add(std::set<unsigned int> lines, bool bTemporary);
    /// \throws CCommandError for a number that doesn't exist
    SBreakpoint& Find(unsigned int nId);
    void Remove(unsigned int nId);
    void Clear() { m_Breakpoints.clear(); }
    std::list<SBreakpoint>& GetAll() { return m_Breakpoints; }
    std::set<unsigned int> GetEnabledLines() const;
    bool HasLine(unsigned int nLine) const;

    /// The result of reaching a line.
    struct SHits
    {
        std::vector<unsigned int> vIds;       ///< the breakpoints that stop here
        std::vector<std::string> vCommands;   ///< their commands
        std::vector<std::string> vNotes;      ///< what is about to happen
        std::optional<size_t> nItem;          ///< the work-item for which a watch stops
        std::vector<std::string> vComplaints; ///< conditions that couldn't be evaluated; these stop too
    };

    /// Counts the hits at a line, and removes temporary breakpoints that stop.
    SHits Arrive(unsigned int nLine, IValueSource& source);

private:
    static bool Fails(const SFaultStop& fault, unsigned int nLine, IValueSource& source, SHits& hits);
    static bool Touches(const SWatch& watch, unsigned int nLine, IValueSource& source, SHits& hits);

    std::list<SBreakpoint> m_Breakpoints;
    unsigned int m_nNextId = 1;
};

} // namespace KestrelTool

#endif
