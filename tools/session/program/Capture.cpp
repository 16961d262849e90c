#include "tools/session/program/Capture.h"

#include "tools/session/ExitCode.h"
#include "tools/session/program/ProgramRecord.h"

#include <filesystem>
#include <ostream>

namespace KestrelTool
{

namespace
{

class CCapture
{
public:
    CCapture(const SCaptureOptions& options, std::ostream& messages)
        : m_Options(options), m_Messages(messages), m_Record(ListSourceFolders(options.command)),
          m_Process(options.command)
    {
    }

    int Run()
    {
        while (true)
        {
            const CProgramProcess::SEvent event = m_Process.Wait();
            if (event.bEnded)
            {
                return Finish();
            }
            Handle(event);
        }
    }

private:
    void Handle(const CProgramProcess::SEvent& event)
    {
        try
        {
            if (CProgramRecord::IsStop(event.message))
            {
                Write(event);
            }
            else
            {
                m_Record.Note(event.nProcess, event.message);
            }
        }
        catch (const CProtocolError& error)
        {
            m_Messages << "kestrel: not captured: " << error.what() << "\n";
            ++m_nFailures;
        }
        if (NeedsAnswer(event.message))
        {
            m_Process.Answer(event.nProcess, DescribeRules({m_Options.wanted}));
        }
    }

    void Write(const CProgramProcess::SEvent& event)
    {
        const SKnownLaunch launch = m_Record.AddLaunch(event.nProcess, event.message);
        const std::string strName = "launch " + std::to_string(launch.nNumber) + " of " + launch.strKernel;
        if (event.message.header.contains("error"))
        {
            throw CProtocolError(strName + ": " + event.message.header.value("error", ""));
        }
        const SLaunchFile file = m_Record.MakeLaunch(event.nProcess, event.message);
        const std::string strPath =
            WriteCapturedLaunch(file, launch, m_Record.GetPrograms()[launch.nProgram - 1], m_Options.target);
        m_Messages << strName << ": " << strPath << "\n";
        ++m_nWritten;
    }

    int Finish()
    {
        if (m_nWritten == 0 && m_nFailures == 0)
        {
            m_Messages << (m_Process.WasHeard()
                               ? "kestrel: none of the program's " + std::to_string(m_Record.GetLaunches().size()) +
                                     " launches was asked for\n"
                               : "kestrel: the program hasn't used OpenCL by way of the loader\n");
            return EXIT_COMMAND_FAILED;
        }
        return m_nFailures != 0 ? static_cast<int>(EXIT_COMMAND_FAILED) : m_Process.GetExitCode();
    }

    const SCaptureOptions& m_Options;
    std::ostream& m_Messages;
    CProgramRecord m_Record;
    CProgramProcess m_Process;
    size_t m_nWritten = 0;
    size_t m_nFailures = 0;
};

} // namespace

std::vector<std::string> ListSourceFolders(const SProgramCommand& command)
{
    const std::filesystem::path start = command.strFolder.empty() ? "." : command.strFolder;
    std::vector<std::string> vFolders = {start.string()};
    for (const std::string& strWord : command.vWords)
    {
        // The program itself, or what an interpreter is given to run.
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

int CaptureLaunches(const SCaptureOptions& options, std::ostream& messages)
{
    return CCapture(options, messages).Run();
}

} // namespace KestrelTool
