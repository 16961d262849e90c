#include "tests/e2e/SessionChecker.h"

#include "tests/e2e/RegisterTypes.h"

#include <algorithm>
#include <cstring>

namespace KestrelTest
{

using KestrelTool::CSession;
using KestrelTool::SArgument;
using KestrelTool::SMaskView;
using KestrelTool::SRegisterView;

namespace
{

// Register types as tokens number them.
const uint32_t s_nMemory = 47;
const size_t s_nMostFindings = 20;
const uint32_t s_nPageBytes = 4096;
const size_t s_nPrivateWords = 16;

std::string RegisterName(const SObservation& observation, size_t nItem)
{
    switch (observation.nRegisterType)
    {
    case s_nTemp:
        return "r" + std::to_string(observation.nRegisterNumber);
    case s_nIndexedTemp:
        return "x" + std::to_string(observation.nRegisterNumber) + "[" + std::to_string(observation.vIndices[nItem]) +
               "]";
    default:
        return std::string();
    }
}

std::string ToString(const uint32_t* pWords)
{
    std::string strText;
    for (int i = 0; i < 4; ++i)
    {
        strText += (i != 0 ? ", " : "") + std::to_string(static_cast<int32_t>(pWords[i]));
    }
    return "(" + strText + ")";
}

} // namespace

CSessionChecker::CSessionChecker(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch,
                                 const CTraceModel& trace)
    : m_Lib(libraries), m_Launch(launch), m_Trace(trace)
{
    cl_context context = nullptr;
    cl_device_id device = nullptr;
    m_Lib.cl.clGetCommandQueueInfo(launch.GetQueue(), CL_QUEUE_CONTEXT, sizeof(context), &context, nullptr);
    m_Lib.cl.clGetCommandQueueInfo(launch.GetQueue(), CL_QUEUE_DEVICE, sizeof(device), &device, nullptr);
    cl_int nCode = CL_SUCCESS;
    m_SideQueue = m_Lib.cl.clCreateCommandQueue(context, device, 0, &nCode);
    for (const SArgument& argument : launch.GetFile().vArguments)
    {
        m_nMaxCopies += argument.eKind == SArgument::Same;
    }
}

CSessionChecker::~CSessionChecker()
{
    m_Lib.cl.clReleaseCommandQueue(m_SideQueue);
}

void CSessionChecker::Report(const std::string& strText)
{
    if (m_vFindings.size() < s_nMostFindings)
    {
        m_vFindings.push_back("stop " + std::to_string(m_nStops) + " at " + m_Position.ToString() + ": " + strText);
    }
}

ovkclDebugCommand CSessionChecker::OnStarted(CSession& session)
{
    m_pStructure = std::make_unique<CTextStructure>(session.GetListing());
    m_pTracker = std::make_unique<CStopTracker>(*m_pStructure);
    // When the session opens, the first instruction has been executed.
    m_Position = m_pTracker->Advance(session.GetListing().GetInstructionNumber(session.GetListing().GetEntry()));
    m_setVisited.insert(m_Position);
    // The call of the kernel's function is executed after the last stop, with the end of the main body.
    SPosition entry;
    while (m_pStructure->GetFunction(entry.nInstruction) == 0)
    {
        m_setVisited.insert(entry);
        ++entry.nInstruction;
    }
    GetPlatformControl(m_Lib).ClearCounters();
    return OVKCLDEBUG_COMMAND_STEP;
}

ovkclDebugCommand CSessionChecker::OnHalted(CSession& session)
{
    ++m_nStops;
    m_Position = m_pTracker->Advance(session.GetListing().GetInstructionNumber(session.GetExecutedLine()));
    m_setVisited.insert(m_Position);
    CheckCosts(session);
    CheckMask(m_Position, session.GetMask());
    CheckRegister(session, m_Position);
    CheckPrivate(session, m_Position);
    CheckUntouched();
    return m_nMaxStops != 0 && m_nStops >= m_nMaxStops ? OVKCLDEBUG_COMMAND_CONTINUE : OVKCLDEBUG_COMMAND_STEP;
}

void CSessionChecker::OnFinished(CSession&)
{
    m_bFinished = true;
}

void CSessionChecker::OnError(CSession& session)
{
    Report("debugging could not begin: " + session.GetLastError());
}

/// The work-items that the debugger must show as active.
std::vector<bool> CSessionChecker::ExpectMask(const SPosition& position) const
{
    const SObservation* pObservation = m_Trace.Find(position);
    if (pObservation == nullptr)
    {
        return std::vector<bool>(m_Launch.GetWorkItems(), false);
    }
    return pObservation->vActive;
}

void CSessionChecker::CheckMask(const SPosition& position, const SMaskView& mask)
{
    const std::vector<bool> vExpected = ExpectMask(position);
    if (mask.nItems != m_Launch.GetWorkItems())
    {
        Report("the mask has " + std::to_string(mask.nItems) + " work-items");
        return;
    }
    for (size_t i = 0; i < mask.nItems; ++i)
    {
        if ((mask.pActive[i] != 0) != vExpected[i])
        {
            Report("work-item " + std::to_string(i) + " is " + (mask.pActive[i] != 0 ? "" : "not ") +
                   "active, unlike in the plain run (" + m_pStructure->GetMnemonic(position.nInstruction) + ")");
            return;
        }
    }
}

void CSessionChecker::NoteWrite(const SObservation& observation)
{
    for (size_t i = 0; i < observation.vActive.size(); ++i)
    {
        if (observation.vActive[i])
        {
            const std::string strName = RegisterName(observation, i);
            if (!strName.empty())
            {
                Values& values = m_mapKnown[strName];
                values.resize(observation.vActive.size());
                values[i] = observation.vValues[i];
            }
        }
    }
}

/// A session works on copies of the buffers, so a device address differs from the plain run's by the distance of the
/// copy: whole pages, and always the same number of them for one copy of a page.
bool CSessionChecker::Agrees(const uint32_t* pGot, const Words& wanted)
{
    for (size_t i = 0; i < wanted.size(); ++i)
    {
        const uint32_t nDistance = pGot[i] - wanted[i];
        if (nDistance % s_nPageBytes != 0)
        {
            return false;
        }
        std::set<uint32_t>& distances = m_mapPages[wanted[i] / s_nPageBytes];
        if (nDistance != 0 && distances.insert(nDistance).second && distances.size() > m_nMaxCopies)
        {
            return false;
        }
    }
    return true;
}

void CSessionChecker::CheckRegister(CSession& session, const SPosition& position)
{
    const SObservation* pObservation = m_Trace.Find(position);
    if (pObservation == nullptr || !pObservation->bHasRegister || pObservation->nRegisterType == s_nMemory)
    {
        return;
    }
    NoteWrite(*pObservation);

    std::set<std::string> setNames;
    for (size_t i = 0; i < pObservation->vActive.size(); ++i)
    {
        if (pObservation->vActive[i])
        {
            setNames.insert(RegisterName(*pObservation, i));
        }
    }
    setNames.erase(std::string());
    for (const std::string& strName : setNames)
    {
        const SRegisterView view = session.GetRegister(strName);
        if (view.pWords == nullptr || view.nItems != m_Launch.GetWorkItems())
        {
            Report("no value of " + strName);
            continue;
        }
        const Values& values = m_mapKnown[strName];
        for (size_t i = 0; i < view.nItems; ++i)
        {
            if (values[i] && !Agrees(view[i], *values[i]))
            {
                Report(strName + " of work-item " + std::to_string(i) + " reads " + ToString(view[i]) + ", not " +
                       ToString(values[i]->data()));
                break;
            }
        }
    }
}

/// A step takes one kernel run, or one for each element if its destination is only known at run time, or none if it
/// writes nothing. The next position is known from the masks of the stops.
void CSessionChecker::CheckCosts(CSession& session)
{
    const SPlatformControl& control = GetPlatformControl(m_Lib);
    const uint64_t nRuns = control.GetCounter(PLATFORM_COUNTER_KERNEL_RUNS);
    control.ClearCounters();
    const std::string& strLine = session.GetListing().GetLine(session.GetExecutedLine());
    const bool bElements =
        strLine.rfind("mov x1[r7.x]", 0) == 0 || strLine.rfind("uav_raw_store_id(8) mem0.x, r3.x", 0) == 0;
    if (m_bCountRuns && nRuns != (bElements ? 4 : 1))
    {
        Report(std::to_string(nRuns) + " kernel runs for " + strLine);
    }
}

void CSessionChecker::CheckPrivate(CSession& session, const SPosition& position)
{
    const SObservation* pObservation = m_Trace.Find(position);
    if (pObservation == nullptr || pObservation->nRegisterType != s_nMemory || !pObservation->bIndexed)
    {
        return;
    }
    // A record has the 16 bytes from the store's address on, whichever of them were written.
    const size_t nBytes = s_nPrivateWords * sizeof(uint32_t);
    m_vPrivate.resize(pObservation->vActive.size() * nBytes);
    for (size_t i = 0; i < pObservation->vActive.size(); ++i)
    {
        const size_t nAddress = pObservation->vIndices[i];
        if (pObservation->vActive[i] && nAddress < nBytes)
        {
            std::memcpy(&m_vPrivate[i * nBytes + nAddress], &pObservation->vValues[i][0],
                        std::min(sizeof pObservation->vValues[i], nBytes - nAddress));
        }
    }
    const std::vector<unsigned char> vGot = session.GetPrivateMemory(pObservation->vActive.size(), 0, nBytes);
    if (std::memcmp(vGot.data(), m_vPrivate.data(), vGot.size()) != 0)
    {
        Report("private memory differs");
    }
}

void CSessionChecker::CheckUntouched()
{
    const std::vector<SArgument>& vArguments = m_Launch.GetFile().vArguments;
    for (size_t i = 0; i < vArguments.size(); ++i)
    {
        if (vArguments[i].eKind != SArgument::Buffer)
        {
            continue;
        }
        std::vector<unsigned char> vBytes(vArguments[i].vContents.size());
        m_Lib.cl.clEnqueueReadBuffer(m_SideQueue, m_Launch.GetMemory(i), CL_TRUE, 0, vBytes.size(), vBytes.data(), 0,
                                     nullptr, nullptr);
        if (vBytes != vArguments[i].vContents)
        {
            Report("the client's buffer " + std::to_string(i) + " has changed");
        }
    }
}

std::vector<SPosition> CSessionChecker::GetUnvisited() const
{
    std::vector<SPosition> vUnvisited;
    for (const auto& entry : m_Trace.GetObservations())
    {
        if (entry.second.Count() != 0 && m_setVisited.count(entry.first) == 0)
        {
            vUnvisited.push_back(entry.first);
        }
    }
    return vUnvisited;
}

} // namespace KestrelTest
