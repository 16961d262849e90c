// The places of a program's breakpoints, and the launches that have to wait for them.

#include "tools/session/debug/Frames.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/debug/ReadListing.h"
#include "tools/session/launch/BuiltProgram.h"
#include "tools/session/program/ProgramSession.h"

#include <algorithm>

namespace KestrelTool
{

std::string NamePlace(const SLaunchPlace& place)
{
    switch (place.eKind)
    {
    case SLaunchPlace::Line:
        return "line " + std::to_string(place.lines.empty() ? 0 : *place.lines.begin()) + " of " + place.strKernel;
    case SLaunchPlace::Kernel:
        return "kernel " + place.strKernel;
    case SLaunchPlace::Source:
        return place.strFile + ":" + std::to_string(place.nLine);
    case SLaunchPlace::Launch:
        break;
    }
    return (place.nNumber != 0 ? "launch " + std::to_string(place.nNumber) : std::string("each launch")) +
           (place.strKernel.empty() ? "" : " of " + place.strKernel);
}

SBreakpoint& CProgramSession::AddBreakpoint(const SLaunchPlace& place, bool bTemporary)
{
    SBreakpoint& breakpoint = m_Breakpoints.Add({}, bTemporary);
    breakpoint.place = place;
    if (m_pDebugger != nullptr)
    {
        Resolve(breakpoint);
    }
    return breakpoint;
}

/// Sets a breakpoint's lines to those of its place in the waiting launch.
void CProgramSession::Resolve(SBreakpoint& breakpoint)
{
    breakpoint.lines = FindPlace(*breakpoint.place);
    breakpoint.condition.reset(); // its names now refer to this kernel
}

std::set<unsigned int> CProgramSession::FindPlace(const SLaunchPlace& place)
{
    const CCodeMap& code = m_pDebugger->GetCode();
    const bool bKernel = place.strKernel.empty() || place.strKernel == m_Launch.strKernel;
    const uint64_t nCount = place.strKernel.empty() ? m_Launch.nNumber : m_Launch.nTurn;
    const std::set<unsigned int> entry = {code.GetFirstStop()};
    switch (place.eKind)
    {
    case SLaunchPlace::Line:
        return bKernel && place.nProgram == m_Launch.nProgram ? place.lines : std::set<unsigned int>();
    case SLaunchPlace::Kernel:
        return bKernel ? entry
                       : FindSourceFunction(m_pDebugger->GetListing(), m_pDebugger->GetDebugInfo(), place.strKernel);
    case SLaunchPlace::Source:
        return IsFile(m_Record.GetPrograms()[m_Launch.nProgram - 1].strFile, place.strFile)
                   ? FindSourceLines(m_pDebugger->GetListing(), m_pDebugger->GetDebugInfo(),
                                     code.FindFunction(code.GetFirstStop()), {place.strFile, place.nLine})
                   : std::set<unsigned int>();
    case SLaunchPlace::Launch:
        break;
    }
    return bKernel && (place.nNumber == 0 || place.nNumber == nCount) ? entry : std::set<unsigned int>();
}

/// The layer's number of a program.
uint32_t CProgramSession::FindId(unsigned int nProgram) const
{
    return m_Record.GetPrograms()[nProgram - 1].nId;
}

std::vector<SLaunchRule> CProgramSession::MakeBreakpointRules()
{
    std::vector<SLaunchRule> vRules;
    if (m_bToPause)
    {
        vRules.emplace_back(); // any launch
    }
    for (const SBreakpoint& breakpoint : m_Breakpoints.GetAll())
    {
        if (!breakpoint.bEnabled || !breakpoint.place)
        {
            continue;
        }
        const SLaunchPlace& place = *breakpoint.place;
        SLaunchRule rule;
        rule.strKernel = place.strKernel;
        switch (place.eKind)
        {
        case SLaunchPlace::Source:
            AddSourceRules(place, vRules);
            continue;
        case SLaunchPlace::Line:
            rule.nProgram = FindId(place.nProgram);
            break;
        case SLaunchPlace::Launch:
            rule.bTurns = !place.strKernel.empty();
            rule.nFirst = place.nNumber != 0 ? place.nNumber : rule.nFirst;
            rule.nLast = place.nNumber != 0 ? place.nNumber : rule.nLast;
            break;
        case SLaunchPlace::Kernel:
            AddFunctionRules(place, vRules);
            break;
        }
        vRules.push_back(rule);
    }
    return vRules;
}

std::vector<SLaunchRule> CProgramSession::MakeRules()
{
    std::vector<SLaunchRule> vRules = MakeBreakpointRules();
    for (const auto& capture : m_vCaptures)
    {
        vRules.push_back(capture.first);
    }
    return vRules;
}

/// Whether the waiting launch has a breakpoint, and isn't only to be captured.
bool CProgramSession::IsToBeDebugged()
{
    const uint32_t nProgram = FindId(m_Launch.nProgram);
    const std::vector<SLaunchRule> vRules = MakeBreakpointRules();
    return std::any_of(vRules.begin(), vRules.end(),
                       [&](const SLaunchRule& rule)
                       { return Wants(rule, m_Launch.strKernel, nProgram, m_Launch.nNumber, m_Launch.nTurn); });
}

/// A program's debug build is made when a line or function of its source is first needed.
const std::map<std::string, CProgramSession::SKernelSource>& CProgramSession::FindSource(const SKnownProgram& program)
{
    const auto itKnown = m_mapSources.find(program.nNumber);
    if (itKnown != m_mapSources.end())
    {
        return itKnown->second;
    }
    std::map<std::string, SKernelSource>& mapKernels = m_mapSources[program.nNumber];
    try
    {
        const std::vector<char> vImage =
            BuildProgram(m_Lib, NameSource(program), std::string(), program.strOptions + " -g").vImage;
        CDebugInfo debugInfo(vImage);
        for (const std::string& strKernel : ListKernels(vImage))
        {
            const CListing listing = ReadListing(vImage, ReadLabel(ReadMetadata(vImage, strKernel)));
            const CCodeMap code(listing);
            const CCodeMap::SFunction* pFunction = code.FindFunction(code.GetFirstStop());
            mapKernels[strKernel] = {ListSourceLines(listing, pFunction, program.strFile),
                                     ListSourceFunctions(debugInfo, pFunction)};
        }
    }
    catch (const std::runtime_error&)
    {
        // A launch of it will report why it can't be built for debugging.
        for (const std::string& strKernel : program.vKernels)
        {
            mapKernels[strKernel].lines = {~0u};
        }
    }
    return mapKernels;
}

/// Adds rules for the kernels that contain the line; if none does, those with the next line that any kernel has.
void CProgramSession::AddSourceRules(const SLaunchPlace& place, std::vector<SLaunchRule>& vRules)
{
    for (const SKnownProgram& program : m_Record.GetPrograms())
    {
        if (!IsFile(program.strFile, place.strFile) || program.strSource.empty())
        {
            continue;
        }
        const auto& mapKernels = FindSource(program);
        std::set<unsigned int> lines;
        for (const auto& kernel : mapKernels)
        {
            lines.insert(kernel.second.lines.begin(), kernel.second.lines.end());
        }
        const auto itWanted = lines.lower_bound(place.nLine);
        for (const auto& kernel : mapKernels)
        {
            if (itWanted != lines.end() && kernel.second.lines.count(*itWanted) != 0)
            {
                SLaunchRule rule;
                rule.strKernel = kernel.first;
                rule.nProgram = program.nId;
                vRules.push_back(rule);
            }
        }
    }
}

/// Adds rules for the kernels that contain a source function with this name, unless it is a kernel's name.
void CProgramSession::AddFunctionRules(const SLaunchPlace& place, std::vector<SLaunchRule>& vRules)
{
    for (const SKnownProgram& program : m_Record.GetPrograms())
    {
        const bool bKernel =
            std::find(program.vKernels.begin(), program.vKernels.end(), place.strKernel) != program.vKernels.end();
        if (bKernel || program.strSource.find(place.strKernel) == std::string::npos)
        {
            continue;
        }
        for (const auto& kernel : FindSource(program))
        {
            if (kernel.second.functions.count(place.strKernel) != 0)
            {
                SLaunchRule rule;
                rule.strKernel = kernel.first;
                rule.nProgram = program.nId;
                vRules.push_back(rule);
            }
        }
    }
}

} // namespace KestrelTool
