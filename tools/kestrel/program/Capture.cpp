#include "tools/kestrel/program/Capture.h"

#include "tools/kestrel/Files.h"
#include "tools/kestrel/command/ExitCode.h"
#include "tools/kestrel/program/LaunchWriter.h"
#include "tools/kestrel/program/ProgramRecord.h"
#include "tools/kestrel/program/ReplayProgram.h"

#include <charconv>
#include <filesystem>
#include <ostream>

namespace KestrelTool
{

namespace
{

/// A whole number from 1; false for anything else.
bool ReadCount(std::string_view text, uint64_t& nNumber)
{
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), nNumber);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && nNumber != 0;
}

/// The name of the program's file in the folder of its launch: that which it has already, with the end that says what
/// it is.
std::string NameProgramFile(const SKnownProgram& program, const std::string& strText)
{
    const std::filesystem::path name = std::filesystem::path(program.strFile).filename();
    if (strText.compare(0, 4, "\177ELF") == 0)
    {
        return name.string() + ".bin";
    }
    const bool bIL = strText.compare(0, 3, "il_") == 0 || strText.compare(0, 9, ";ARGSTART") == 0;
    return bIL ? name.stem().string() + ".il" : name.string();
}

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
        if (CProgramRecord::NeedsAnswer(event.message))
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
        std::filesystem::create_directories(m_Options.strFolder);
        const std::string strProcess = launch.nProcess > 1 ? "p" + std::to_string(launch.nProcess) + "-" : "";
        const std::string strPath =
            m_Options.strFolder + "/" + strProcess + std::to_string(launch.nNumber) + "-" + launch.strKernel + ".json";
        const SLaunchFile file = m_Record.MakeLaunch(event.nProcess, event.message);
        const std::string strProgram = NameProgramFile(m_Record.GetPrograms()[launch.nProgram - 1], file.strSource);
        WriteLaunch(file, strPath, strProgram);
        if (m_Options.bEmitC)
        {
            const std::string strStem = std::filesystem::path(strPath).stem().string();
            WriteFileBytes(m_Options.strFolder + "/" + strStem + ".c", MakeReplayProgram(file, strStem, strProgram));
        }
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

bool ReadLaunchRange(const std::string& strText, SLaunchRule& rule)
{
    const std::string_view text = strText;
    const size_t nHyphen = text.find('-');
    const std::string_view last = nHyphen == std::string_view::npos ? text : text.substr(nHyphen + 1);
    return ReadCount(text.substr(0, nHyphen), rule.nFirst) && ReadCount(last, rule.nLast) && rule.nLast >= rule.nFirst;
}

std::vector<std::string> ListSourceFolders(const SProgramCommand& command)
{
    std::vector<std::string> vFolders = {"."};
    for (const std::string& strWord : command.vWords)
    {
        // The program itself, or what an interpreter is given to run.
        std::error_code error;
        const std::filesystem::path folder = std::filesystem::path(strWord).parent_path();
        if (!folder.empty() && std::filesystem::is_regular_file(strWord, error))
        {
            vFolders.push_back(folder.string());
        }
    }
    return vFolders;
}

int CaptureLaunches(const SCaptureOptions& options, std::ostream& messages)
{
    return CCapture(options, messages).Run();
}

} // namespace KestrelTool
