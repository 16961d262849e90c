#include "tools/session/program/Capture.h"

#include "tools/session/ExitCode.h"
#include "tools/session/program/ProgramFollower.h"

#include <ostream>

namespace KestrelTool
{

namespace
{

class CCapture : public CProgramFollower
{
public:
    CCapture(const SCaptureOptions& options, std::ostream& messages)
        : CProgramFollower(options.command, options.wanted), m_Target(options.target), m_Messages(messages)
    {
    }

    int Run()
    {
        Follow();
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

private:
    void Take(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program) override
    {
        const std::string strPath = WriteCapturedLaunch(file, launch, program, m_Target);
        m_Messages << "launch " << launch.nNumber << " of " << launch.strKernel << ": " << strPath << "\n";
        ++m_nWritten;
    }

    void Refuse(uint64_t /*nLaunch*/, const std::string& strReason) override
    {
        m_Messages << "kestrel: not captured: " << strReason << "\n";
        ++m_nFailures;
    }

    const SCaptureTarget& m_Target;
    std::ostream& m_Messages;
    size_t m_nWritten = 0;
    size_t m_nFailures = 0;
};

} // namespace

int CaptureLaunches(const SCaptureOptions& options, std::ostream& messages)
{
    return CCapture(options, messages).Run();
}

} // namespace KestrelTool
