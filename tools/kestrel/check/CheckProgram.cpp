#include "tools/kestrel/check/CheckProgram.h"

#include "tools/session/ExitCode.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/session/launch/Codes.h"
#include "tools/session/program/ProgramFollower.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace KestrelTool
{

namespace
{

using nlohmann::json;

/// The name that a compiler gives a source without a file.
const char* const s_pszUnnamed = "kernel.cl";

/// Parses "kernel.cl:3:31: warning: excess elements". \return false for a line of another form
bool ReadWarning(const std::string& strLine, SCheckFinding& finding)
{
    static const std::string s_strMark = ": warning: ";
    const size_t nMark = strLine.find(s_strMark);
    const size_t nColumn = nMark == std::string::npos || nMark == 0 ? nMark : strLine.rfind(':', nMark - 1);
    const size_t nLine = nColumn == std::string::npos || nColumn == 0 ? nColumn : strLine.rfind(':', nColumn - 1);
    if (nLine == std::string::npos || nLine == 0)
    {
        return false;
    }
    finding.place.strFile = strLine.substr(0, nLine);
    finding.strMessage = "the compiler warns: " + strLine.substr(nMark + s_strMark.size());
    const char* const pEnd = strLine.data() + nColumn;
    const auto number = std::from_chars(strLine.data() + nLine + 1, pEnd, finding.place.nLine);
    return number.ec == std::errc() && number.ptr == pEnd;
}

class CProgramCheck : public CProgramFollower
{
public:
    CProgramCheck(const CCheckedRuns& runs, const CLibraries& libraries, const SProgramCommand& command, bool bApi,
                  CCheckReport& report, std::ostream& messages)
        : CProgramFollower(command, SLaunchRule()), m_Runs(runs), m_Lib(libraries), m_bApi(bApi), m_Report(report),
          m_Messages(messages)
    {
    }

    int Run()
    {
        Follow();
        if (!m_Process.WasHeard())
        {
            Refuse(0, "the program hasn't used OpenCL by way of the loader");
        }
        for (const auto& [nLaunch, strReason] : m_vRefused)
        {
            m_Messages << "kestrel: not checked: " << strReason << "\n";
        }
        return !m_vRefused.empty() ? static_cast<int>(EXIT_COMMAND_FAILED) : m_Process.GetExitCode();
    }

private:
    void Take(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program) override
    {
        SLaunchFile named = file;
        named.strSource = program.strSource.empty() ? file.strSource : NameSource(program);
        try
        {
            m_Report.Run(m_Runs, m_Lib, named, launch.nNumber);
        }
        catch (const CPlatformError& error)
        {
            Refuse(launch.nNumber,
                   "launch " + std::to_string(launch.nNumber) + " of " + launch.strKernel + ": " + error.what());
        }
    }

    void Refuse(uint64_t nLaunch, const std::string& strReason) override
    {
        m_vRefused.emplace_back(nLaunch, strReason);
    }

    void Hear(int /*nProcess*/, const SMessage& message) override
    {
        const json& header = message.header;
        const std::string strWhat = header.value("what", "");
        try
        {
            if (strWhat == "program")
            {
                TakeLog(header.value("log", ""), m_Record.GetPrograms().back());
            }
            else if (strWhat == "refused")
            {
                TakeRefused(header);
            }
            else if (strWhat == "waits")
            {
                Complain(header.at("call").get<std::string>() + " waits in a callback, in which nothing may wait");
            }
            else if (strWhat == "left")
            {
                TakeLeft(header.at("objects"));
            }
        }
        catch (const json::exception& error)
        {
            throw CProtocolError(std::string("a message lacks what it should have: ") + error.what());
        }
    }

    void Complain(const SCheckFinding& finding)
    {
        if (m_bApi)
        {
            m_Report.Complain(finding);
        }
    }

    void Complain(const std::string& strMessage)
    {
        SCheckFinding finding;
        finding.strMessage = strMessage;
        Complain(finding);
    }

    void TakeLog(const std::string& strLog, const SKnownProgram& program)
    {
        const std::vector<std::string> vLines = SplitLines(program.strSource);
        for (const std::string& strLine : SplitLines(strLog))
        {
            SCheckFinding finding;
            if (!ReadWarning(strLine, finding))
            {
                continue;
            }
            SCheckPlace& place = finding.place;
            const bool bOwn = place.strFile == s_pszUnnamed;
            place.strFile = bOwn ? program.strFile : place.strFile;
            place.strText = bOwn && place.nLine > 0 && place.nLine <= vLines.size() ? vLines[place.nLine - 1] : "";
            Complain(finding);
        }
    }

    void TakeRefused(const json& header)
    {
        SCheckFinding finding;
        finding.strKernel = header.at("name");
        finding.nLaunch = header.at("number");
        finding.strMessage = "the launch fails with " + NameCode(header.at("code").get<cl_int>());
        for (const json& argument : header.at("arguments"))
        {
            const std::string strName = argument.at("name");
            finding.strMessage += ": argument " + std::to_string(argument.at("number").get<size_t>()) +
                                  (strName.empty() ? "" : ", " + strName + ",") +
                                  (argument.at("fault") == "unset" ? " isn't set" : " is an object that is released");
        }
        Complain(finding);
        // Launches that the runtime refuses don't run without checks either.
        m_vRefused.erase(std::remove_if(m_vRefused.begin(), m_vRefused.end(),
                                        [&](const auto& refused) { return refused.first == finding.nLaunch; }),
                         m_vRefused.end());
    }

    void TakeLeft(const json& objects)
    {
        std::string strObjects;
        for (const auto& [strName, count] : objects.items())
        {
            const uint64_t nCount = count.get<uint64_t>();
            const std::string strKind = strName == "memory" ? "memory object" : strName;
            strObjects +=
                (strObjects.empty() ? "" : ", ") + std::to_string(nCount) + " " + strKind + (nCount == 1 ? "" : "s");
        }
        Complain("objects are left at the end: " + strObjects);
    }

    const CCheckedRuns& m_Runs;
    const CLibraries& m_Lib;
    const bool m_bApi;
    CCheckReport& m_Report;
    std::ostream& m_Messages;
    std::vector<std::pair<uint64_t, std::string>> m_vRefused; ///< launches that weren't checked, with the reason
};

} // namespace

int CheckProgram(const CCheckedRuns& runs, const CLibraries& libraries, const SProgramCommand& command, bool bApi,
                 CCheckReport& report, std::ostream& messages)
{
    return CProgramCheck(runs, libraries, command, bApi, report, messages).Run();
}

} // namespace KestrelTool
