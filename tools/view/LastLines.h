#ifndef KESTREL_TOOLS_VIEW_LASTLINES_H
#define KESTREL_TOOLS_VIEW_LASTLINES_H

#include "tools/session/debug/Debugger.h"

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KestrelTool
{

/// At which line each work-item was active last. Where the platform can't tell, it is the line of the last stop at
/// which it was: of so many stops as fit some memory, a bit is kept for each work-item.
class CLastLines
{
public:
    /// Notes who is active at the present stop.
    void Note(CDebugger& debugger);
    void Forget();
    /// A picture with "lines": for each class the line, its file, and how many work-items were there last.
    nlohmann::json Draw(CDebugger& debugger, size_t nWidth, size_t nHeight);

private:
    struct SStop
    {
        std::string strFile; ///< empty for IL
        unsigned int nLine = 0;
        std::vector<uint64_t> vActive; ///< a bit for each work-item
    };

    using Line = std::pair<std::string, unsigned int>; ///< file, empty for IL, and line

    /// The lines that a picture shows, and which of them each work-item is at.
    struct SClasses
    {
        std::vector<Line> vLines; ///< the class of a line is its index plus 1
        std::vector<size_t> vCounts;
        std::vector<unsigned char> vOfItems;

        unsigned char FindClass(const Line& line);
    };

    SClasses ClassifyByTrace(CDebugger& debugger) const;
    SClasses ClassifyByStops(CDebugger& debugger) const;

    std::vector<unsigned int> m_vTraced; ///< lines of IL by work-item; empty if the platform doesn't tell them
    uint64_t m_nTraced = 0;              ///< the movement after which they were found
    uint64_t m_nGeneration = 0;
    std::map<size_t, SStop> m_mapStops; ///< by their places on the time line
};

} // namespace KestrelTool

#endif
