#include "tools/session/debug/Frames.h"

#include <algorithm>
#include <map>

namespace KestrelTool
{

namespace
{

/// Adds the frames of the source functions that a line belongs to within one IL function.
void AddFrames(const CListing& listing, const CCodeMap::SFunction* pFunction, CDebugInfo& debugInfo, unsigned int nLine,
               std::vector<SFrame>& vFrames)
{
    std::optional<SSourceLine> place = ReadSourceLine(listing.GetPlace(nLine));
    unsigned int nDepth = 0;
    for (const SSourceFrame& source : debugInfo.FindFrames(nLine))
    {
        vFrames.push_back({source.strFunction, nLine, place, nDepth++});
        place = ReadSourceLine(source.strCallPlace);
    }
    if (nDepth == 0)
    {
        vFrames.push_back({pFunction != nullptr ? pFunction->strName : std::string(), nLine, place, 0});
    }
}

/// The inlined copy that a line belongs to; 0 if unknown.
uint64_t FindInstance(CDebugInfo& debugInfo, unsigned int nLine)
{
    const std::vector<SSourceFrame>& vFrames = debugInfo.FindFrames(nLine);
    return vFrames.empty() ? 0 : vFrames.front().nInstance;
}

std::set<unsigned int> LinesOf(const std::map<uint64_t, unsigned int>& mapFirst)
{
    std::set<unsigned int> lines;
    for (const auto& first : mapFirst)
    {
        lines.insert(first.second);
    }
    return lines;
}

} // namespace

std::vector<SFrame> ListFrames(const CListing& listing, const CCodeMap& code, CDebugInfo& debugInfo,
                               unsigned int nKernelLabel, unsigned int nLine)
{
    std::vector<SFrame> vFrames;
    const size_t nMostCalls = code.GetFunctions().size();
    for (size_t nCalls = 0; nCalls <= nMostCalls; ++nCalls)
    {
        const CCodeMap::SFunction* pFunction = code.FindFunction(nLine);
        if (!vFrames.empty() && vFrames.front().place && listing.GetPlace(nLine).empty())
        {
            break; // the caller of a source kernel isn't in the source
        }
        AddFrames(listing, pFunction, debugInfo, nLine, vFrames);
        if (pFunction == nullptr || pFunction->nLabel == nKernelLabel || pFunction->vCallLines.size() != 1)
        {
            break;
        }
        nLine = pFunction->vCallLines.front();
    }
    return vFrames;
}

std::set<unsigned int> FindSourceLines(const CListing& listing, CDebugInfo& debugInfo,
                                       const CCodeMap::SFunction* pFunction, const SSourceLine& line)
{
    const std::set<unsigned int> lines = ListSourceLines(listing, pFunction, line.strFile);
    const auto itWanted = lines.lower_bound(line.nLine);
    std::map<uint64_t, unsigned int> mapFirst; // by inlined copy
    const unsigned int nEnd =
        pFunction != nullptr ? pFunction->nEnd : static_cast<unsigned int>(listing.GetLineCount());
    for (unsigned int nLine = pFunction != nullptr ? pFunction->nHead : 0; itWanted != lines.end() && nLine <= nEnd;
         ++nLine)
    {
        const std::optional<SSourceLine> place = ReadSourceLine(listing.GetPlace(nLine));
        if (listing.IsInstruction(nLine) && place && place->nLine == *itWanted && IsFile(place->strFile, line.strFile))
        {
            mapFirst.insert({FindInstance(debugInfo, nLine), nLine});
        }
    }
    return LinesOf(mapFirst);
}

std::set<std::string> ListSourceFunctions(CDebugInfo& debugInfo, const CCodeMap::SFunction* pFunction)
{
    std::set<std::string> functions;
    for (unsigned int nLine = pFunction != nullptr ? pFunction->nHead : 0;
         pFunction != nullptr && nLine <= pFunction->nEnd; ++nLine)
    {
        for (const SSourceFrame& frame : debugInfo.FindFrames(nLine))
        {
            functions.insert(frame.strFunction);
        }
    }
    return functions;
}

std::set<unsigned int> FindSourceFunction(const CListing& listing, CDebugInfo& debugInfo, const std::string& strName)
{
    std::map<uint64_t, unsigned int> mapFirst;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        if (!listing.IsInstruction(nLine) || listing.GetPlace(nLine).empty())
        {
            continue;
        }
        for (const SSourceFrame& frame : debugInfo.FindFrames(nLine))
        {
            if (frame.strFunction == strName)
            {
                mapFirst.insert({frame.nInstance, nLine});
            }
        }
    }
    return LinesOf(mapFirst);
}

} // namespace KestrelTool
