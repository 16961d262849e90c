#ifndef KESTREL_TOOLS_VIEW_LASTLINES_H
#define KESTREL_TOOLS_VIEW_LASTLINES_H

#include "tools/session/debug/Debugger.h"

#include <nlohmann/json_fwd.hpp>

#include <map>

namespace KestrelTool
{

/// At which line each work-item was active last, as far as stops have shown it. A bit is kept for each work-item and
/// stop, of so many stops as fit some memory.
class CLastLines
{
public:
    /// Notes who is active at the present stop.
    void Note(CDebugger& debugger);
    void Forget();
    /// A picture with "lines": for each class the line, its file, and how many work-items were there last.
    nlohmann::json Draw(CDebugger& debugger, size_t nWidth, size_t nHeight) const;

private:
    struct SStop
    {
        std::string strFile; ///< empty for IL
        unsigned int nLine = 0;
        std::vector<uint64_t> vActive; ///< a bit for each work-item
    };

    uint64_t m_nGeneration = 0;
    std::map<size_t, SStop> m_mapStops; ///< by their places on the time line
};

} // namespace KestrelTool

#endif
