#ifndef KESTREL_TOOLS_PROGRAM_PROGRAMFOLLOWER_H
#define KESTREL_TOOLS_PROGRAM_PROGRAMFOLLOWER_H

#include "tools/session/program/ProgramProcess.h"
#include "tools/session/program/ProgramRecord.h"

namespace KestrelTool
{

/// Runs a program to its end and takes launches of it as they come. The program waits for each that is taken.
class CProgramFollower
{
public:
    /// Starts it. \param wanted  which launches are taken
    /// \throws CProgramError
    CProgramFollower(const SProgramCommand& command, SLaunchRule wanted);
    virtual ~CProgramFollower() = default;
    CProgramFollower(const CProgramFollower&) = delete;
    CProgramFollower& operator=(const CProgramFollower&) = delete;

    /// Returns at the program's end.
    void Follow();

protected:
    /// \param file  what makes the launch, as a launch file would have it
    virtual void Take(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program) = 0;
    /// A launch couldn't be taken; the text says which, and why. \param nLaunch  its number; 0 if it isn't known
    virtual void Refuse(uint64_t nLaunch, const std::string& strReason) = 0;
    /// Any other message, once the record has it.
    virtual void Hear(int /*nProcess*/, const SMessage& /*message*/) {}

    CProgramRecord m_Record;
    CProgramProcess m_Process;

private:
    void Handle(const CProgramProcess::SEvent& event);
    void HandleStop(const CProgramProcess::SEvent& event);

    const SLaunchRule m_Wanted;
};

/// Folders in which a program's files of OpenCL C may lie: where it is started, and where it lies itself.
std::vector<std::string> ListSourceFolders(const SProgramCommand& command);

} // namespace KestrelTool

#endif
