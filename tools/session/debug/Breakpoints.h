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

/// Where a breakpoint stands that outlives a launch: it has a line only while a launch is debugged that has its place.
struct SLaunchPlace
{
    enum EKind
    {
        Line,   ///< lines of a certain kernel's text
        Kernel, ///< the entry of a kernel, or of a function of the source, by its name
        Source, ///< a line of a file
        Launch  ///< the entry of launches, by number
    };

    EKind eKind = Line;
    std::string strKernel;        ///< of a launch: empty for any
    unsigned int nProgram = 0;    ///< of a line: the program's number
    std::set<unsigned int> lines; ///< of the text, of a line or of a function's beginnings
    unsigned int nLine = 0;       ///< of the source: that of the file
    std::string strFile;
    uint64_t nNumber = 0; ///< of a launch: which one, of all or of the kernel's; 0 for each
};

/// A breakpoint of the user's. Several may share a line.
struct SBreakpoint
{
    unsigned int nId = 0;
    std::set<unsigned int> lines; ///< of IL: one for each place of inlining; none if the kernel hasn't got its place
    std::optional<SLaunchPlace> place;
    bool bTemporary = false;
    bool bEnabled = true;
    std::string strCondition;                 ///< empty for none
    std::optional<CExpression> condition;     ///< the same for the kernel that is debugged, once it has been asked
    std::shared_ptr<const SWatch> pWatch;     ///< stops only where one of these accesses is next; null for none
    std::shared_ptr<const SFaultStop> pFault; ///< the same for what the kernel does wrong
    size_t nIgnore = 0;                       ///< hits that are passed over
    size_t nHits = 0;
    std::vector<std::string> vCommands; ///< what is done at a stop
    /// Asked at each hit, after it has been counted; what it doesn't want is passed. Without one each hit is wanted.
    std::function<bool(const SBreakpoint&)> isWanted;
};

/// The user's breakpoints, with numbers that are never used again.
class CBreakpoints
{
public:
    SBreakpoint& Add(std::set<unsigned int> lines, bool bTemporary);
    /// \throws CCommandError for a number that isn't there
    SBreakpoint& Find(unsigned int nId);
    void Remove(unsigned int nId);
    void Clear() { m_Breakpoints.clear(); }
    std::list<SBreakpoint>& GetAll() { return m_Breakpoints; }
    std::set<unsigned int> GetEnabledLines() const;
    bool HasLine(unsigned int nLine) const;

    /// What has come of arriving at a line.
    struct SHits
    {
        std::vector<unsigned int> vIds;       ///< the breakpoints that stop here
        std::vector<std::string> vCommands;   ///< what they want done
        std::vector<std::string> vNotes;      ///< what is about to happen
        std::optional<size_t> nItem;          ///< the work-item that a watch stops for
        std::vector<std::string> vComplaints; ///< conditions that couldn't be worked out; these stop too
    };

    /// Counts the hits at a line and takes away temporary breakpoints that stop.
    SHits Arrive(unsigned int nLine, IValueSource& source);

private:
    static bool Fails(const SFaultStop& fault, unsigned int nLine, IValueSource& source, SHits& hits);
    static bool Touches(const SWatch& watch, unsigned int nLine, IValueSource& source, SHits& hits);

    std::list<SBreakpoint> m_Breakpoints;
    unsigned int m_nNextId = 1;
};

} // namespace KestrelTool

#endif
