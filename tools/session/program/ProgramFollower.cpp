#include "tools/session/program/ProgramFollower.h"

#include <filesystem>
#include <utility>

namespace KestrelTool
{

std::vector<std::string> ListSourceFolders(const SProgramCommand& command)
{
    const std::filesystem::path start = command.strFolder.empty() ? "." : command.strFolder;
    std::vector<std::string> vFolders = {start.string()};
    for (const std::string& strWord : command.vWords)
    {
        // The program itself, or the script that an interpreter is to run.
        std::error_code error;
        const std::filesystem::path path = command.strFolder.empty() ? std::filesystem::path(strWord) : start / strWord;
        const std::filesystem::path folder = std::filesystem::path(strWord).parent_path();
        if (!folder.empty() && std::filesystem::is_regular_file(path, error))
        {
            vFolders.push_back(path.parent_path().string());
        }
    }
    return vFolders;
}

CProgramFollower::CProgramFollower(const SProgramCommand& command, SLaunchRule wanted)
    : m_Record(ListSourceFolders(command)), m_Process(command), m_Wanted(std::move(wanted))
{
}

void CProgramFollower::Follow()
{
    for (CProgramProcess::SEvent event = m_Process.Wait(); !event.bEnded; event = m_Process.Wait())
    {
        Handle(event);
    }
}

void CProgramFollower::Handle(const CProgramProcess::SEvent& event)
{
    try
    {
        if (CProgramRecord::IsStop(event.message))
        {
            HandleStop(event);
        }
        else
        {
            m_Record.Note(event.nProcess, event.message);
            Hear(event.nProcess, event.message);
        }
    }
    catch (const CProtocolError& error)
    {
        Refuse(0, error.what());
    }
    if (NeedsAnswer(event.message))
    {
        m_Process.Answer(event.nProcess, DescribeRules({m_Wanted}));
    }
}

void CProgramFollower::HandleStop(const CProgramProcess::SEvent& event)
{
    const SKnownLaunch launch = m_Record.AddLaunch(event.nProcess, event.message);
    if (event.message.header.contains("error"))
    {
        return Refuse(launch.nNumber, "launch " + std::to_string(launch.nNumber) + " of " + launch.strKernel + ": " +
                                          event.message.header.value("error", ""));
    }
    Take(m_Record.MakeLaunch(event.nProcess, event.message), launch, m_Record.GetPrograms()[launch.nProgram - 1]);
}

} // namespace KestrelTool
