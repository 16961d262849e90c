#include "tools/session/launch/Session.h"

#include "tools/session/launch/BinarySections.h"
#include "tools/session/launch/Codes.h"
#include "tools/source/SourcePlaces.h"

#include <algorithm>
#include <exception>

namespace KestrelTool
{

namespace
{

void Check(ovkclDebugError nCode, const char* pszWhat)
{
    if (nCode != OVKCLDEBUG_SUCCESS)
    {
        throw CSessionError(std::string(pszWhat) + " failed: " + NameDebugCode(nCode));
    }
}

} // namespace

size_t SMaskView::Count() const
{
    return static_cast<size_t>(std::count_if(pActive, pActive + nItems, [](cl_bool bActive) { return bActive != 0; }));
}

const CListing& CSession::GetListing()
{
    if (!m_pListing)
    {
        size_t nSize = 0;
        Check(m_Lib.ovkclDebugGetKernelBinarySize(m_Context, &nSize), "ovkclDebugGetKernelBinarySize");
        std::vector<char> vBinary(nSize);
        Check(m_Lib.ovkclDebugGetKernelBinary(m_Context, vBinary.data(), nSize), "ovkclDebugGetKernelBinary");
        std::vector<std::string> vLines = ReadKernelText(vBinary);
        std::vector<std::string> vPlaces = ReadSourcePlaces(vBinary, vLines.size());
        m_pListing = std::make_unique<CListing>(std::move(vLines), std::move(vPlaces));
    }
    return *m_pListing;
}

ovkclDebugError CSession::Ask(const std::function<ovkclDebugError()>& query) const
{
    if (!m_Asker)
    {
        return query();
    }
    ovkclDebugError nCode = OVKCLDEBUG_SUCCESS;
    m_Asker([&] { nCode = query(); });
    return nCode;
}

unsigned int CSession::GetNextLine() const
{
    ovkclDebugPC nLine = 0;
    Check(m_Lib.ovkclDebugGetProgramCounter(m_Context, &nLine), "ovkclDebugGetProgramCounter");
    return nLine;
}

SMaskView CSession::GetMask() const
{
    SMaskView mask;
    Check(m_Lib.ovkclDebugGetExecutionMask(m_Context, &mask.pActive, &mask.nItems), "ovkclDebugGetExecutionMask");
    return mask;
}

size_t CSession::CountActive() const
{
    size_t nActive = 0;
    const ovkclDebugError eCode = m_Lib.ovkclDebugGetExecutionMask(m_Context, nullptr, &nActive);
    if (eCode == OVKCLDEBUG_ERROR_INVALID_ARGUMENT) // no values on demand
    {
        return GetMask().Count();
    }
    Check(eCode, "ovkclDebugGetExecutionMask");
    return nActive;
}

bool CSession::IsRegister(const std::string& strName) const
{
    ovkclDebugRegisterLocator locator = 0;
    Check(m_Lib.ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>(strName.c_str()), &locator),
          "ovkclDebugUtilStringToDebugRegisterLocator");
    return locator != ~ovkclDebugRegisterLocator(0);
}

SRegisterView CSession::GetRegister(const std::string& strName) const
{
    ovkclDebugRegisterLocator locator = 0;
    Check(m_Lib.ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>(strName.c_str()), &locator),
          "ovkclDebugUtilStringToDebugRegisterLocator");
    SRegisterView view;
    const void* pValues = nullptr;
    size_t nStride = 0;
    const ovkclDebugError nCode =
        Ask([&] { return m_Lib.ovkclDebugGetRegisterValues(m_Context, locator, &pValues, &nStride, &view.nItems); });
    if (nCode == OVKCLDEBUG_ERROR_INVALID_LOCATION)
    {
        return SRegisterView();
    }
    Check(nCode, "ovkclDebugGetRegisterValues");
    view.pWords = static_cast<const unsigned int*>(pValues);
    return view;
}

std::vector<std::string> CSession::GetActiveRegisters() const
{
    size_t nRegisters = 0;
    Check(m_Lib.ovkclDebugGetNumberOfActiveRegisters(m_Context, &nRegisters), "ovkclDebugGetNumberOfActiveRegisters");
    std::vector<ovkclDebugRegisterLocator> vLocators(nRegisters);
    Check(m_Lib.ovkclDebugGetActiveRegisters(m_Context, vLocators.data(), nRegisters), "ovkclDebugGetActiveRegisters");
    std::vector<std::string> vNames;
    for (const ovkclDebugRegisterLocator locator : vLocators)
    {
        char szName[64] = {};
        Check(m_Lib.ovkclDebugUtilDebugRegisterLocatorToString(locator, sizeof(szName),
                                                               reinterpret_cast<cl_char*>(szName), nullptr),
              "ovkclDebugUtilDebugRegisterLocatorToString");
        vNames.push_back(szName);
    }
    return vNames;
}

std::string CSession::GetLastError() const
{
    size_t nSize = 0;
    Check(m_Lib.ovkclDebugUtilGetLastError(m_Context, 0, nullptr, &nSize), "ovkclDebugUtilGetLastError");
    std::string strError(nSize, '\0');
    if (nSize != 0)
    {
        Check(m_Lib.ovkclDebugUtilGetLastError(m_Context, nSize, &strError[0], nullptr), "ovkclDebugUtilGetLastError");
        strError.pop_back();
    }
    return strError;
}

std::vector<unsigned char> CSession::GetPrivateMemory(size_t nItems, uint64_t nAddress, size_t nBytes) const
{
    std::vector<unsigned char> vBytes(nItems * nBytes);
    size_t nWritten = 0;
    Check(
        Ask([&]
            { return m_Lib.ovkclDebugGetPrivateMemoryValues(m_Context, nAddress, nBytes, vBytes.data(), &nWritten); }),
        "ovkclDebugGetPrivateMemoryValues");
    return vBytes;
}

std::vector<unsigned char> CSession::GetGlobalMemory(unsigned int nResource, uint64_t nAddress, size_t nBytes) const
{
    std::vector<unsigned char> vBytes(nBytes);
    size_t nWritten = 0;
    const ovkclDebugError nCode = Ask(
        [&] {
            return m_Lib.ovkclDebugGetGlobalMemoryValues(m_Context, nResource, nAddress, nBytes, vBytes.data(),
                                                         &nWritten);
        });
    if (nCode == OVKCLDEBUG_ERROR_INVALID_LOCATION)
    {
        return {};
    }
    Check(nCode, "ovkclDebugGetGlobalMemoryValues");
    vBytes.resize(nWritten);
    return vBytes;
}

size_t CSession::GetBufferSize(unsigned int nResource, uint64_t nAddress) const
{
    size_t nSize = 0;
    const ovkclDebugError nCode =
        Ask([&] { return m_Lib.ovkclDebugGetGlobalMemoryValues(m_Context, nResource, nAddress, 0, nullptr, &nSize); });
    return nCode == OVKCLDEBUG_SUCCESS ? nSize : 0;
}

std::vector<unsigned int> CSession::SetBreakpoints(const std::set<unsigned int>& lines)
{
    std::vector<unsigned int> vRefused;
    for (const unsigned int nLine : m_Breakpoints)
    {
        if (lines.count(nLine) == 0)
        {
            Check(m_Lib.ovkclDebugClearBreakpoint(m_Context, nLine), "ovkclDebugClearBreakpoint");
        }
    }
    for (const unsigned int nLine : lines)
    {
        if (m_Breakpoints.count(nLine) == 0 &&
            m_Lib.ovkclDebugSetBreakpoint(m_Context, nLine, 0, nullptr) != OVKCLDEBUG_SUCCESS)
        {
            vRefused.push_back(nLine);
        }
    }
    m_Breakpoints = lines;
    for (const unsigned int nLine : vRefused)
    {
        m_Breakpoints.erase(nLine);
    }
    return vRefused;
}

void CSession::SetTrackedRegisters(const std::vector<std::string>& vNames)
{
    std::vector<ovkclDebugRegisterLocator> vLocators(vNames.size());
    for (size_t i = 0; i < vNames.size(); ++i)
    {
        Check(m_Lib.ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>(vNames[i].c_str()),
                                                               &vLocators[i]),
              "ovkclDebugUtilStringToDebugRegisterLocator");
    }
    Check(m_Lib.ovkclDebugSetTrackingRegisters(m_Context, vNames.empty() ? nullptr : vLocators.data(), vNames.size()),
          "ovkclDebugSetTrackingRegisters");
}

void CSession::ReadValuesOnDemand()
{
    const ovkclDebugRegisterLocator onDemand = OVKCLDEBUG_EXT_VALUES_ON_DEMAND;
    Check(m_Lib.ovkclDebugSetTrackingRegisters(m_Context, &onDemand, 1), "ovkclDebugSetTrackingRegisters");
}

void CSession::NoteStop()
{
    if (m_nUpcomingLine == CListing::NoLine)
    {
        // When the session opens, its first instruction has been executed, so the first step executes the
        // next one.
        m_nUpcomingLine = GetListing().GetFirstStop();
    }
    m_nExecutedLine = m_nUpcomingLine;
    m_nUpcomingLine = GetNextLine();
}

/// The object behind the callback's user data.
class CSessionDriver
{
public:
    CSessionDriver(const CLibraries& libraries, ISessionClient& client) : m_Lib(libraries), m_Client(client) {}

    static ovkclDebugCommand CL_CALLBACK Callback(ovkclDebugContext context, ovkclDebugEvent event, void* pUserData)
    {
        return static_cast<CSessionDriver*>(pUserData)->OnEvent(context, event);
    }

    void RethrowError()
    {
        if (m_pError)
        {
            std::rethrow_exception(m_pError);
        }
    }

private:
    ovkclDebugCommand OnEvent(ovkclDebugContext context, ovkclDebugEvent event)
    {
        // Exceptions mustn't pass through the debugger.
        try
        {
            if (!m_pSession)
            {
                m_pSession = std::make_unique<CSession>(m_Lib, context);
            }
            return Dispatch(event);
        }
        catch (...)
        {
            m_pError = m_pError ? m_pError : std::current_exception();
            return OVKCLDEBUG_COMMAND_CONTINUE;
        }
    }

    ovkclDebugCommand Dispatch(ovkclDebugEvent event)
    {
        switch (event)
        {
        case OVKCLDEBUG_EVENT_STARTED:
            return m_Client.OnStarted(*m_pSession);
        case OVKCLDEBUG_EVENT_HALTED:
            m_pSession->NoteStop();
            return m_Client.OnHalted(*m_pSession);
        case OVKCLDEBUG_EVENT_FINISHED:
            m_Client.OnFinished(*m_pSession);
            return OVKCLDEBUG_COMMAND_CONTINUE;
        default:
            m_Client.OnError(*m_pSession);
            return OVKCLDEBUG_COMMAND_CONTINUE;
        }
    }

    const CLibraries& m_Lib;
    ISessionClient& m_Client;
    std::unique_ptr<CSession> m_pSession;
    std::exception_ptr m_pError;
};

cl_int RunSession(const CLibraries& libraries, CLaunch& launch, ISessionClient& client)
{
    CSessionDriver driver(libraries, client);
    const cl_int nCode = launch.Debug(&CSessionDriver::Callback, &driver);
    driver.RethrowError();
    return nCode;
}

} // namespace KestrelTool
