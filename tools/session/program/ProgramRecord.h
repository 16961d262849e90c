#ifndef KESTREL_TOOLS_PROGRAM_PROGRAMRECORD_H
#define KESTREL_TOOLS_PROGRAM_PROGRAMRECORD_H

#include "tools/session/Protocol.h"
#include "tools/session/launch/LaunchFile.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KestrelTool
{

/// An OpenCL program that the debugged program has created.
struct SKnownProgram
{
    unsigned int nNumber = 0; ///< from 1, in the order of the reports
    int nProcess = 0;
    uint32_t nId = 0;      ///< the layer's number for it in its process
    std::string strFile;   ///< the file with its text if there is one, else an invented name
    std::string strSource; ///< empty if it was created from a binary, or linked
    std::string strOptions;
    std::vector<std::string> vKernels;
};

/// A kernel object.
struct SKnownKernel
{
    std::string strName;
    unsigned int nProgram = 0;                                    ///< the program's number
    std::vector<std::pair<std::string, std::string>> vParameters; ///< names and types
};

/// A launch that was reported, or waits.
struct SKnownLaunch
{
    int nProcess = 0;
    uint64_t nNumber = 0; ///< its number within the process
    uint64_t nTurn = 0;   ///< its number among the kernel's launches
    std::string strKernel;
    unsigned int nProgram = 0;
    std::vector<size_t> vGlobal;
    std::vector<size_t> vLocal; ///< empty if the platform chooses
    uint64_t nMicroseconds = 0; ///< since the process's first launch
    std::string strArguments;   ///< summary
};

/// Everything that a program's layers have reported. It knows nothing of sockets.
class CProgramRecord
{
public:
    /// \param vFolders  folders to search for the OpenCL C files of programs
    explicit CProgramRecord(std::vector<std::string> vFolders) : m_vFolders(std::move(vFolders)) {}

    /// Whether a message reports a waiting launch.
    static bool IsStop(const SMessage& message);
    /// Records any other message: a program, a kernel, or a launch that isn't debugged; ignores unknown ones.
    /// Throws CProtocolError for an invalid message, like the next function.
    void Note(int nProcess, const SMessage& message);
    /// For a message "launch" or "stop".
    const SKnownLaunch& AddLaunch(int nProcess, const SMessage& message);
    /// A waiting launch like one from a launch file, with the program's own build options and "-g".
    SLaunchFile MakeLaunch(int nProcess, const SMessage& message) const;

    const std::vector<SKnownProgram>& GetPrograms() const { return m_vPrograms; }
    const std::vector<SKnownLaunch>& GetLaunches() const { return m_vLaunches; }
    /// The launches by kernel, in the order of their first ones.
    std::vector<std::pair<std::string, uint64_t>> CountLaunches() const;

private:
    void AddProgram(int nProcess, const SMessage& message);
    void AddKernel(int nProcess, const SMessage& message);
    std::string FindFile(const std::string& strSource, unsigned int nNumber) const;
    const SKnownKernel& FindKernel(int nProcess, const SMessage& message) const;

    std::vector<std::string> m_vFolders;
    std::vector<SKnownProgram> m_vPrograms;
    std::map<std::pair<int, uint32_t>, SKnownKernel> m_mapKernels;
    std::vector<SKnownLaunch> m_vLaunches;
};

/// What is debugged of a kernel whose program only exists as a binary: the binary if it has debug data, else a module
/// made of the kernel's IL.
std::string MakeDebuggable(const std::vector<char>& vImage, const std::string& strKernel);

/// A program's text, preceded by a line that tells the compiler its name.
std::string NameSource(const SKnownProgram& program);

/// The element type for a type of OpenCL C: that of a pointer's target or a vector's components; bytes if there is
/// none.
const SElementType& FindElementOf(const std::string& strType);

} // namespace KestrelTool

#endif
