#include "tools/kestrel/check/CheckedRuns.h"

#include "tools/session/launch/PlatformDoor.h"

namespace KestrelTool
{

namespace
{

const SPlatformControl& RequireControl(const CLibraries& libraries)
{
    const SPlatformControl* const pControl = FindPlatformControl(libraries);
    if (pControl == nullptr)
    {
        throw CPlatformError("this platform checks nothing; the software platform does");
    }
    return *pControl;
}

template <class T>
std::vector<T> TakeAll(uint32_t (*pfGet)(T*, uint32_t))
{
    std::vector<T> vAll(pfGet(nullptr, 0));
    pfGet(vAll.data(), static_cast<uint32_t>(vAll.size()));
    return vAll;
}

} // namespace

CCheckedRuns::CCheckedRuns(const CLibraries& libraries, uint32_t nChecks, uint64_t nLimit)
    : m_Control(RequireControl(libraries))
{
    m_Control.SetChecks(nChecks);
    m_Control.SetInstructionLimit(nLimit);
}

CCheckedRuns::~CCheckedRuns()
{
    m_Control.SetChecks(0);
    m_Control.SetInstructionLimit(0);
    m_Control.FollowNumbers(nullptr, 0);
}

SCheckedRun CCheckedRuns::Run(CLaunch& launch, const std::vector<uint32_t>& vFollowed) const
{
    m_Control.FollowNumbers(vFollowed.data(), static_cast<uint32_t>(vFollowed.size()));
    try
    {
        launch.Run();
    }
    catch (const CPlatformError&)
    {
        // Reaching the limit is a finding.
        SPlatformEnd end = {};
        m_Control.GetLastEnd(&end);
        if (end.nEnd != PLATFORM_END_LIMIT)
        {
            throw;
        }
    }
    SCheckedRun run;
    run.vFindings = TakeAll(m_Control.GetFindings);
    run.vBuffers = TakeAll(m_Control.GetLastBuffers);
    run.vPlaces = TakeAll(m_Control.GetPlaces);
    m_Control.GetCheckLimits(&run.limits);
    return run;
}

const char* NameCheck(uint32_t nKind)
{
    switch (nKind)
    {
    case PLATFORM_FINDING_RACE:
        return "race";
    case PLATFORM_FINDING_BARRIER:
    case PLATFORM_FINDING_HANG:
        return "barrier";
    case PLATFORM_FINDING_MISALIGNED:
        return "alignment";
    case PLATFORM_FINDING_INIT:
        return "init";
    case PLATFORM_FINDING_NAN:
        return "nan";
    default:
        return "memory";
    }
}

const std::vector<SCheckName>& ListChecks()
{
    static const std::vector<SCheckName> s_vChecks = {
        {"memory", PLATFORM_CHECK_MEMORY, true},
        {"race", PLATFORM_CHECK_RACE, true},
        {"init", PLATFORM_CHECK_INIT, true},
        {"nan", PLATFORM_CHECK_NAN, false},
        {"barrier", PLATFORM_CHECK_BARRIER, true},
        {"alignment", PLATFORM_CHECK_ALIGNMENT, false},
        {"api", g_nCheckProgram, true},
    };
    return s_vChecks;
}

} // namespace KestrelTool
