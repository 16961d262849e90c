#include "tests/e2e/StepRecord.h"

#include "tests/e2e/ScriptedClient.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace KestrelTest
{

using KestrelTool::CListing;
using KestrelTool::CSession;
using KestrelTool::SMaskView;

namespace
{

bool HasPrefix(const std::string& strText, const char* pszPrefix)
{
    return strText.rfind(pszPrefix, 0) == 0;
}

/// Instructions from which work-items go elsewhere than to the next instruction or into their own block, and entries.
bool IsJump(const std::string& strMnemonic)
{
    return HasPrefix(strMnemonic, "break") || HasPrefix(strMnemonic, "continue") || HasPrefix(strMnemonic, "ret") ||
           HasPrefix(strMnemonic, "call") || HasPrefix(strMnemonic, "mcall") || strMnemonic == "func";
}

struct SDestination
{
    std::string strRegister;   ///< with its index: "r3", "x1[r7.x]"; a global store counts as one too
    std::string strComponents; ///< the written ones
};

SDestination GetDestination(const std::string& strLine)
{
    SDestination destination;
    const size_t nStart = strLine.find(' ');
    const std::string strOperand =
        nStart != std::string::npos ? strLine.substr(nStart + 1, strLine.find(',') - nStart - 1) : std::string();
    if (strOperand[0] == 'r' || strOperand[0] == 'x' || HasPrefix(strOperand, "mem"))
    {
        const size_t nIndexEnd = strOperand.find(']');
        const size_t nPoint = strOperand.find('.', nIndexEnd != std::string::npos ? nIndexEnd : 0);
        destination.strRegister = strOperand.substr(0, nPoint);
        destination.strComponents = nPoint != std::string::npos ? strOperand.substr(nPoint + 1) : "xyzw";
        destination.strComponents.erase(
            std::remove(destination.strComponents.begin(), destination.strComponents.end(), '_'),
            destination.strComponents.end());
    }
    return destination;
}

} // namespace

CStepRecord::CStepRecord(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch,
                         const CItemHistory& history)
{
    Record(libraries, launch, history);
    FindBlocks();
}

void CStepRecord::Record(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch,
                         const CItemHistory& history)
{
    std::unique_ptr<CStopTracker> pTracker;
    const auto note = [&](uint32_t nInstruction, unsigned int nNextLine, std::vector<bool> vMask)
    {
        SStop stop;
        stop.nInstruction = nInstruction;
        stop.nNextLine = nNextLine;
        stop.vMask = std::move(vMask);
        stop.vProgress.assign(history.GetItems(), 0);
        if (!m_vStops.empty())
        {
            const SStop& previous = m_vStops.back();
            stop.vProgress = previous.vProgress;
            const bool bCall = HasPrefix(m_pStructure->GetMnemonic(nInstruction), "call") ||
                               HasPrefix(m_pStructure->GetMnemonic(nInstruction), "mcall");
            const bool bEntered =
                m_pStructure->GetFunction(nInstruction) != m_pStructure->GetFunction(previous.nInstruction);
            stop.nDepth = previous.nDepth + (bCall ? 0 : bEntered) - (bCall && previous.nDepth != 0);
        }
        const SPosition position = pTracker->Advance(nInstruction);
        for (size_t i = 0; i < history.GetItems(); ++i)
        {
            const ptrdiff_t nOrder = history.FindProgress(i, position);
            stop.vProgress[i] = std::max(stop.vProgress[i], static_cast<size_t>(nOrder + 1));
        }
        m_vStops.push_back(stop);
    };
    CScriptedClient client(
        [&](CSession& session)
        {
            m_pListing = std::make_unique<CListing>(session.GetListing());
            m_pStructure = std::make_unique<CTextStructure>(*m_pListing);
            pTracker = std::make_unique<CStopTracker>(*m_pStructure);
            const unsigned int nEntry = m_pListing->GetEntry();
            note(m_pListing->GetInstructionNumber(nEntry), m_pListing->GetNextInstruction(nEntry), {});
            return OVKCLDEBUG_COMMAND_STEP;
        },
        [&](CSession& session)
        {
            const SMaskView mask = session.GetMask();
            note(m_pListing->GetInstructionNumber(session.GetExecutedLine()), session.GetNextLine(),
                 std::vector<bool>(mask.pActive, mask.pActive + mask.nItems));
            return OVKCLDEBUG_COMMAND_STEP;
        });
    if (KestrelTool::RunSession(libraries, launch, client) != CL_SUCCESS || m_vStops.empty())
    {
        throw std::runtime_error("the launch can't be stepped: " + client.GetError());
    }
}

void CStepRecord::FindBlocks()
{
    std::vector<SBlock> vOpen;
    for (uint32_t n = 0; n < m_pStructure->GetInstructionCount(); ++n)
    {
        const std::string strMnemonic = m_pStructure->GetMnemonic(n);
        if (HasPrefix(strMnemonic, "if") || strMnemonic == "whileloop" || strMnemonic == "switch")
        {
            vOpen.push_back({n, 0, 0});
        }
        else if (strMnemonic == "else")
        {
            vOpen.back().nMiddle = n;
        }
        else if (strMnemonic == "endif" || strMnemonic == "endloop" || strMnemonic == "endswitch")
        {
            SBlock block = vOpen.back();
            vOpen.pop_back();
            block.nEnd = n;
            block.nMiddle = block.nMiddle != 0 ? block.nMiddle : n;
            m_vBlocks.push_back(block);
        }
        else if (strMnemonic == "call")
        {
            const std::string& strLine = m_pListing->GetLine(m_pListing->GetLineOfInstruction(n));
            const unsigned int nFunction =
                m_pListing->GetFunction(static_cast<unsigned int>(std::strtoul(strLine.c_str() + 5, nullptr, 10)));
            m_vCalls.push_back({n, m_pListing->GetInstructionNumber(nFunction)});
        }
    }
}

std::set<uint32_t> CStepRecord::GetMarked(const std::set<unsigned int>& setLines) const
{
    std::set<uint32_t> setMarked;
    for (const unsigned int nLine : setLines)
    {
        setMarked.insert(m_pListing->GetInstructionNumber(nLine));
    }
    return setMarked;
}

bool CStepRecord::IsMarkedWithin(uint32_t nFrom, uint32_t nTo, const std::set<uint32_t>& setMarked) const
{
    const auto it = setMarked.upper_bound(nFrom);
    if (it != setMarked.end() && *it < nTo)
    {
        return true;
    }
    return std::any_of(m_vCalls.begin(), m_vCalls.end(),
                       [&](const auto& call)
                       {
                           if (call.first <= nFrom || call.first >= nTo)
                           {
                               return false;
                           }
                           uint32_t nEnd = call.second;
                           while (nEnd < m_pStructure->GetInstructionCount() &&
                                  m_pStructure->GetFunction(nEnd) == m_pStructure->GetFunction(call.second))
                           {
                               ++nEnd;
                           }
                           return IsMarkedWithin(call.second - 1, nEnd, setMarked);
                       });
}

std::optional<uint32_t> CStepRecord::GetSkipEnd(uint32_t nInstruction, const std::set<uint32_t>& setMarked) const
{
    for (const SBlock& block : m_vBlocks)
    {
        const bool bIf = HasPrefix(m_pStructure->GetMnemonic(block.nStart), "if");
        const bool bLoop = m_pStructure->GetLoopEnd(block.nStart) == block.nEnd;
        const bool bAtEnd = setMarked.count(block.nEnd) != 0;
        const bool bFirst = IsMarkedWithin(block.nStart, block.nMiddle, setMarked) ||
                            (bLoop && setMarked.count(block.nStart) != 0) || (!bIf && bAtEnd);
        const bool bSecond = block.nMiddle != block.nEnd && IsMarkedWithin(block.nMiddle, block.nEnd, setMarked);
        if (nInstruction == block.nStart && !bFirst)
        {
            return bSecond || bAtEnd || setMarked.count(block.nMiddle) != 0 ? block.nMiddle - 1 : block.nEnd;
        }
        if (nInstruction == block.nMiddle && nInstruction != block.nEnd && !bSecond)
        {
            return block.nEnd - 1;
        }
    }
    return std::nullopt;
}

bool CStepRecord::IsEndOfMarkedLoop(uint32_t nInstruction, const std::set<uint32_t>& setMarked) const
{
    return std::any_of(m_vBlocks.begin(), m_vBlocks.end(),
                       [&](const SBlock& block)
                       {
                           return m_pStructure->GetLoopEnd(block.nStart) == nInstruction && nInstruction != 0 &&
                                  IsMarkedWithin(block.nStart, block.nEnd, setMarked);
                       });
}

/// The last of the consecutive stops between the stop's instruction and nSkipEnd, or in functions called there.
size_t CStepRecord::GetLastWithin(size_t nStop, uint32_t nSkipEnd) const
{
    const SStop& first = m_vStops[nStop];
    size_t nLast = nStop;
    for (size_t n = nStop + 1; n < m_vStops.size(); ++n)
    {
        const SStop& next = m_vStops[n];
        if (next.nDepth > first.nDepth)
        {
            continue; // the stop at the call, which comes last, decides where the call is
        }
        if (next.nDepth < first.nDepth || next.nInstruction < first.nInstruction || next.nInstruction > nSkipEnd)
        {
            break;
        }
        nLast = n;
    }
    return nLast;
}

std::optional<std::set<std::string>> CStepRecord::GetWritten(uint32_t nFirst, uint32_t nLast) const
{
    // Jumps within a whole loop stay inside it.
    const bool bLoop = m_pStructure->GetLoopEnd(nFirst) == nLast;
    std::map<std::string, std::set<char>> mapComponents;
    std::set<std::string> setWritten;
    for (uint32_t n = nFirst; n <= nLast; ++n)
    {
        const std::string strMnemonic = m_pStructure->GetMnemonic(n);
        const bool bLeaves = !bLoop || HasPrefix(strMnemonic, "ret") || HasPrefix(strMnemonic, "call");
        if (IsJump(strMnemonic) && bLeaves)
        {
            return std::nullopt;
        }
        const std::string& strLine = m_pListing->GetLine(m_pListing->GetLineOfInstruction(n));
        if (HasPrefix(strLine, "uav_raw_store_id(8)"))
        {
            return std::nullopt; // the text doesn't show which slots of private memory are read
        }
        const SDestination destination = GetDestination(strLine);
        const size_t nIndex = destination.strRegister.find("[r");
        if (nIndex == std::string::npos)
        {
            mapComponents[destination.strRegister].insert(destination.strComponents.begin(),
                                                          destination.strComponents.end());
            continue;
        }
        const std::string strArray = destination.strRegister.substr(0, nIndex);
        for (unsigned int nElement = 0; nElement < GetArraySize(strArray); ++nElement)
        {
            setWritten.insert(strArray + " element " + std::to_string(nElement));
        }
    }
    mapComponents.erase(std::string());
    for (const auto& entry : mapComponents)
    {
        setWritten.insert(entry.first + "." + std::string(entry.second.begin(), entry.second.end()));
    }
    return setWritten;
}

unsigned int CStepRecord::GetArraySize(const std::string& strArray) const
{
    const std::string strDeclaration = "dcl_indexed_temp_array " + strArray + "[";
    for (unsigned int nLine = 0; nLine < m_pListing->GetLineCount(); ++nLine)
    {
        const std::string& strText = m_pListing->GetLine(nLine);
        if (HasPrefix(strText, strDeclaration.c_str()))
        {
            return static_cast<unsigned int>(std::strtoul(strText.c_str() + strDeclaration.size(), nullptr, 10));
        }
    }
    return 0;
}

/// The two parts of an if are recorded separately. \return false if work-items may leave in between
bool CStepRecord::AddWritten(uint32_t nFirst, uint32_t nLast, std::optional<std::set<std::string>>& written) const
{
    uint32_t nMiddle = nLast;
    for (const SBlock& block : m_vBlocks)
    {
        nMiddle = block.nStart == nFirst && nFirst != nLast ? block.nMiddle : nMiddle;
    }
    const std::optional<std::set<std::string>> first = GetWritten(nFirst, nMiddle);
    const std::optional<std::set<std::string>> second = GetWritten(nMiddle, nLast);
    if (!written || !first || !second)
    {
        return false;
    }
    written->insert(first->begin(), first->end());
    written->insert(second->begin(), second->end());
    return true;
}

std::optional<CStepRecord::SExpected> CStepRecord::Continue(size_t nFrom, const std::set<unsigned int>& setLines) const
{
    const std::set<uint32_t> setMarked = GetMarked(setLines);
    std::optional<std::set<std::string>> written = std::set<std::string>();
    for (size_t n = nFrom + 1; n < m_vStops.size(); ++n)
    {
        const uint32_t nFirst = m_vStops[n].nInstruction;
        const std::optional<uint32_t> nSkipEnd = GetSkipEnd(nFirst, setMarked);
        const std::string strMnemonic = m_pStructure->GetMnemonic(nFirst);
        const bool bOpens = HasPrefix(strMnemonic, "if") || strMnemonic == "whileloop" || strMnemonic == "switch";
        // Decisions are needed where a block is divided, or where one with a breakpoint begins or ends.
        const bool bDecides = bOpens ? !nSkipEnd || GetSkipEnd(nFirst, {}) != nSkipEnd
                                     : IsJump(strMnemonic) || IsEndOfMarkedLoop(nFirst, setMarked) ||
                                           strMnemonic == "else" || strMnemonic == "case" || strMnemonic == "default";
        if (bDecides || !AddWritten(nFirst, nSkipEnd.value_or(nFirst), written))
        {
            written.reset();
        }
        if (nSkipEnd)
        {
            n = GetLastWithin(n, *nSkipEnd);
        }
        if (setLines.count(m_vStops[n].nNextLine) != 0)
        {
            SExpected expected;
            expected.nStop = n;
            expected.setWritten = written;
            const uint32_t nLast = m_vStops[n].nInstruction;
            const std::optional<std::set<std::string>> atStop = GetWritten(nLast, nLast);
            expected.nAtStop = atStop ? std::max<size_t>(atStop->size(), 1) : 1;
            return expected;
        }
    }
    return std::nullopt;
}

} // namespace KestrelTest
