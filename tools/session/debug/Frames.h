#ifndef KESTREL_TOOLS_DEBUG_FRAMES_H
#define KESTREL_TOOLS_DEBUG_FRAMES_H

#include "tools/session/debug/SourceLines.h"
#include "tools/source/DebugInfo.h"

#include <optional>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A function that a stop is in, inlined or called.
struct SFrame
{
    std::string strFunction;
    unsigned int nLine = 0;           ///< of IL: where the stop is, or the call of the frame before
    std::optional<SSourceLine> place; ///< of the source: the same
    unsigned int nDepth = 0;          ///< among the functions of the source that the line is in, from the innermost
};

/// The functions that a line of IL is in, the innermost first, up to the kernel. They end early where a function is
/// called from more than one place, since a position doesn't tell which call it is.
/// \param nKernelLabel  the kernel's own function: what calls it is nobody's
std::vector<SFrame> ListFrames(const CListing& listing, const CCodeMap& code, CDebugInfo& debugInfo,
                               unsigned int nKernelLabel, unsigned int nLine);

/// Lines of IL at which a line of a file begins, one for each place where its function is inlined. Without code of its
/// own it is the next line that has some.
/// \param pFunction  the function of IL to look in; null for all
std::set<unsigned int> FindSourceLines(const CListing& listing, CDebugInfo& debugInfo,
                                       const CCodeMap::SFunction* pFunction, const SSourceLine& line);

/// The functions of the source that have instructions in a function of IL.
std::set<std::string> ListSourceFunctions(CDebugInfo& debugInfo, const CCodeMap::SFunction* pFunction);

/// Lines of IL at which a function of the source begins, one for each place where it is inlined.
std::set<unsigned int> FindSourceFunction(const CListing& listing, CDebugInfo& debugInfo, const std::string& strName);

} // namespace KestrelTool

#endif
