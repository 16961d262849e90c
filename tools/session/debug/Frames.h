#ifndef KESTREL_TOOLS_DEBUG_FRAMES_H
#define KESTREL_TOOLS_DEBUG_FRAMES_H

#include "tools/session/debug/SourceLines.h"
#include "tools/source/DebugInfo.h"

#include <optional>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A function on the call stack of a stop, inlined or called.
struct SFrame
{
    std::string strFunction;
    unsigned int nLine = 0;           ///< of IL: the stop's, or that of the call made by the previous frame
    std::optional<SSourceLine> place; ///< the same in the source
    unsigned int nDepth = 0;          ///< among the source functions that contain the line, from the innermost
};

/// The call stack of a line of IL, innermost function first, up to the kernel. It is cut off at a function that is
/// called from several places, since a position doesn't tell which call it is.
/// \param nKernelLabel  the kernel's own function, whose caller isn't shown
std::vector<SFrame> ListFrames(const CListing& listing, const CCodeMap& code, CDebugInfo& debugInfo,
                               unsigned int nKernelLabel, unsigned int nLine);

/// The IL lines at which a source line begins, one for each inlined copy of its function. If the line has no code, uses
/// the next line that has some.
/// \param pFunction  the IL function to search; null for all
std::set<unsigned int> FindSourceLines(const CListing& listing, CDebugInfo& debugInfo,
                                       const CCodeMap::SFunction* pFunction, const SSourceLine& line);

/// The source functions that have instructions in an IL function.
std::set<std::string> ListSourceFunctions(CDebugInfo& debugInfo, const CCodeMap::SFunction* pFunction);

/// The IL lines at which a source function begins, one for each inlined copy.
std::set<unsigned int> FindSourceFunction(const CListing& listing, CDebugInfo& debugInfo, const std::string& strName);

} // namespace KestrelTool

#endif
