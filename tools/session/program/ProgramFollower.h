#ifndef KESTREL_TOOLS_PROGRAM_PROGRAMFOLLOWER_H
#define KESTREL_TOOLS_PROGRAM_PROGRAMFOLLOWER_H

#include "tools/session/program/ProgramProcess.h"
#include "tools/session/program/ProgramRecord.h"

namespace KestrelTool
{

/// Runs a program to its end, and takes selected launches as they come. The program waits during each of them.
class CProgramFollower
{
public:
    /// Starts the program. \param wanted  the launches to take
    /// \throws CProgramError
    CProgramFollower(const SProgramCommand& command, SLaunchRule wanted);
    virtual ~CProgramFollower() = default;
    CProgramFollower(const CProgramFollower&) = delete;
    CProgramFollower& operator=(const CProgramFollower&) = delete;

    /// Returns at the program's end.
    void Follow();

protected:
    /// \param file  describes the launch, like a launch file
    virtual void Take(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program) = 0;
    /// A launch couldn't be taken; the text tells which one, and why. \param nLaunch  its number; 0 if unknown
    virtual void Refuse(uint64_t nLaunch, const std::string& strReason) = 0;
    /// Called for any other message, after it was recorded.
    virtual void Hear(int /*nProcess*/, const SMessage& /*message*/) {}

    CProgramRecord m_Record;
    CProgramProcess m_Process;

private:
    void Handle(const CProgramProcess::SEvent& event);
    void HandleStop(const CProgramProcess::SEvent& event);

    const SLaunchRule m_Wanted;
};

/// The folders to search for a program's OpenCL C files: where it is started, and where its own file is.
std::vector<std::string> ListSourceFolders(const SProgramCommand& command);

} // namespace KestrelTool

#endif
