#include "tests/e2e/StopTracker.h"

#include <stdexcept>

namespace KestrelTest
{

namespace
{

bool IsCall(const std::string& strMnemonic)
{
    return strMnemonic == "call" || strMnemonic.compare(0, 5, "mcall") == 0;
}

} // namespace

CTextStructure::CTextStructure(const KestrelTool::CListing& listing)
{
    std::vector<uint32_t> vLoops; // currently open
    uint32_t nFunction = 0;
    uint32_t nMacro = 1000000; // numbered apart from the functions

    unsigned int nPrevious = 0;
    for (unsigned int nLine = listing.GetLineOfInstruction(0); nLine != KestrelTool::CListing::NoLine;
         nLine = listing.GetNextInstruction(nLine))
    {
        // Macro markers aren't instructions, but they open and close a body.
        for (unsigned int nBetween = nPrevious; nBetween < nLine; ++nBetween)
        {
            if (listing.GetMnemonic(nBetween).compare(0, 4, "mdef") == 0)
            {
                nFunction = ++nMacro;
            }
        }
        nPrevious = nLine;

        const uint32_t nInstruction = static_cast<uint32_t>(m_vMnemonics.size());
        const std::string strMnemonic = listing.GetMnemonic(nLine);
        m_vMnemonics.push_back(strMnemonic);
        if (strMnemonic == "func")
        {
            nFunction = nInstruction;
        }
        m_vFunction.push_back(nFunction);

        if (strMnemonic == "whileloop")
        {
            vLoops.push_back(nInstruction);
        }
        if (strMnemonic == "endloop" && !vLoops.empty())
        {
            m_mapLoopEnds[vLoops.back()] = nInstruction;
            vLoops.pop_back();
        }
    }
}

std::string CTextStructure::GetMnemonic(uint32_t nInstruction) const
{
    return nInstruction < m_vMnemonics.size() ? m_vMnemonics[nInstruction] : std::string();
}

uint32_t CTextStructure::GetLoopEnd(uint32_t nStart) const
{
    const auto it = m_mapLoopEnds.find(nStart);
    return it != m_mapLoopEnds.end() ? it->second : 0;
}

/// Returning from a call is a stop, but entering the function isn't: it is entered from the instruction before its call
/// or, at the start, from the first instruction.
void CStopTracker::FollowCall(uint32_t nInstruction)
{
    const uint32_t nFunction = m_Structure.GetFunction(nInstruction);
    const uint32_t nLastFunction = m_nLast ? m_Structure.GetFunction(*m_nLast) : 0;
    if (nFunction == nLastFunction)
    {
        return;
    }
    if (m_vFrames.size() > 1 && m_vFrames[m_vFrames.size() - 2].nCall == nInstruction)
    {
        m_vFrames.pop_back();
        return;
    }
    m_vFrames.back().nCall = m_nLast ? *m_nLast + 1 : 0;
    if (!IsCall(m_Structure.GetMnemonic(m_vFrames.back().nCall)))
    {
        throw std::logic_error("instruction " + std::to_string(nInstruction) + " was entered without a call");
    }
    m_vFrames.emplace_back();
}

SPosition CStopTracker::At(uint32_t nInstruction) const
{
    SPosition position;
    position.nInstruction = nInstruction;
    position.vLoops = m_vFrames.back().loops;
    for (size_t i = 0; i + 1 < m_vFrames.size(); ++i)
    {
        position.vCalls.push_back({m_vFrames[i].nCall, m_vFrames[i].loops});
    }
    return position;
}

SPosition CStopTracker::Advance(uint32_t nInstruction)
{
    FollowCall(nInstruction);
    m_nLast = nInstruction;
    Loops& loops = m_vFrames.back().loops;
    while (!loops.empty() &&
           (nInstruction < loops.back().first || nInstruction >= m_Structure.GetLoopEnd(loops.back().first)))
    {
        loops.pop_back();
    }
    if (m_Structure.GetLoopEnd(nInstruction) != 0)
    {
        if (!loops.empty() && loops.back().first == nInstruction)
        {
            ++loops.back().second;
        }
        else
        {
            loops.push_back({nInstruction, 0});
        }
    }
    return At(nInstruction);
}

} // namespace KestrelTest
