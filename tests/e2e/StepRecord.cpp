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

bool StartsWith(const std::string& strText, const char* pszPrefix)
{
    return strText.rfind(pszPrefix, 0) == 0;
}

/// Instructions that take work-items elsewhere than to the next instruction or into their own block.
bool IsJump(const std::string& strMnemonic)
{
    return StartsWith(strMnemonic, "break") || StartsWith(strMnemonic, "continue") || StartsWith(strMnemonic, "ret") ||
           StartsWith(strMnemonic, "call") || StartsWith(strMnemonic, "mcall");
}

/// What an instruction line writes, with the index and the components: "r3.xy", "x1[r7.x].x".
std::string GetDestination(const std::string& strLine)
{
    const size_t nStart = strLine.find(' ');
    if (nStart == std::string::npos)
    {
        return std::string();
    }
    const std::string strOperand = strLine.substr(nStart + 1, strLine.find(',') - nStart - 1);
    return strOperand[0] == 'r' || strOperand[0] == 'x' ? strOperand : std::string();
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
            const bool bCall = StartsWith(m_pStructure->GetMnemonic(nInstruction), "call") ||
                               StartsWith(m_pStructure->GetMnemonic(nInstruction), "mcall");
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
        if (StartsWith(strMnemonic, "if") || strMnemonic == "whileloop" || strMnemonic == "switch")
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
                           while (m_pStructure->GetFunction(nEnd) == m_pStructure->GetFunction(call.second) &&
                                  nEnd < m_pStructure->GetInstructionCount())
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
        const bool bFirst = IsMarkedWithin(block.nStart, block.nMiddle, setMarked);
        const bool bSecond = block.nMiddle != block.nEnd && IsMarkedWithin(block.nMiddle, block.nEnd, setMarked);
        if (nInstruction == block.nStart && !bFirst)
        {
            return bSecond ? block.nMiddle - 1 : block.nEnd;
        }
        if (nInstruction == block.nMiddle && nInstruction != block.nEnd && !bSecond)
        {
            return block.nEnd - 1;
        }
    }
    return std::nullopt;
}

size_t CStepRecord::GetLastWithin(size_t nStop, uint32_t nSkipEnd) const
{
    const SStop& first = m_vStops[nStop];
    size_t n = nStop;
    while (n + 1 < m_vStops.size())
    {
        const SStop& next = m_vStops[n + 1];
        const bool bWithin = next.nDepth > first.nDepth || (next.nDepth == first.nDepth &&
                                                            next.nInstruction >= first.nInstruction &&
                                                            next.nInstruction <= nSkipEnd);
        if (!bWithin)
        {
            break;
        }
        ++n;
    }
    return n;
}

std::optional<std::set<std::string>> CStepRecord::GetWritten(uint32_t nFirst, uint32_t nLast) const
{
    // The jumps of a whole loop stay inside.
    const bool bLoop = m_pStructure->GetLoopEnd(nFirst) == nLast;
    std::set<std::string> setWritten;
    for (uint32_t n = nFirst; n <= nLast; ++n)
    {
        const std::string& strLine = m_pListing->GetLine(m_pListing->GetLineOfInstruction(n));
        const bool bOwn = bLoop && !StartsWith(m_pStructure->GetMnemonic(n), "ret") &&
                          !StartsWith(m_pStructure->GetMnemonic(n), "call");
        if (IsJump(m_pStructure->GetMnemonic(n)) && !bOwn)
        {
            return std::nullopt;
        }
        const std::string strDestination = GetDestination(strLine);
        const size_t nIndex = strDestination.find("[r");
        if (nIndex == std::string::npos)
        {
            setWritten.insert(strDestination);
            continue;
        }
        const std::string strArray = strDestination.substr(0, nIndex);
        const std::string strDeclaration = "dcl_indexed_temp_array " + strArray + "[";
        for (unsigned int nLine = 0; nLine < m_pListing->GetLineCount(); ++nLine)
        {
            const std::string& strText = m_pListing->GetLine(nLine);
            const bool bDeclares = StartsWith(strText, strDeclaration.c_str());
            const unsigned long nSize =
                bDeclares ? std::strtoul(strText.c_str() + strDeclaration.size(), nullptr, 10) : 0;
            for (unsigned long nElement = 0; nElement < nSize; ++nElement)
            {
                setWritten.insert(strArray + " element " + std::to_string(nElement));
            }
        }
    }
    setWritten.erase(std::string());
    return setWritten;
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
        const bool bOpens = StartsWith(strMnemonic, "if") || strMnemonic == "whileloop" || strMnemonic == "switch";
        // What divides a block, or leaves or opens one with a breakpoint in it, has to be decided.
        const bool bDecides = bOpens ? !nSkipEnd || GetSkipEnd(nFirst, {}) != nSkipEnd
                                     : IsJump(strMnemonic) || strMnemonic == "else" || strMnemonic == "case" ||
                                           strMnemonic == "default";
        const std::optional<std::set<std::string>> here = GetWritten(nFirst, nSkipEnd.value_or(nFirst));
        if (bDecides || !here || !written)
        {
            written.reset();
        }
        else
        {
            written->insert(here->begin(), here->end());
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
