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

/// An OpenCL program that the program under the debugger has made.
struct SKnownProgram
{
    unsigned int nNumber = 0; ///< from 1, in the order in which they were told of
    int nProcess = 0;
    uint32_t nId = 0;      ///< the layer's number of it in its process
    std::string strFile;   ///< the file with its text if there is one, else a name that is made up
    std::string strSource; ///< empty for one that was made from a binary, or linked
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

/// A launch that has gone by, or waits.
struct SKnownLaunch
{
    int nProcess = 0;
    uint64_t nNumber = 0; ///< counts the process's launches
    uint64_t nTurn = 0;   ///< counts the kernel's
    std::string strKernel;
    unsigned int nProgram = 0;
    std::vector<size_t> vGlobal;
    std::vector<size_t> vLocal; ///< empty if it is left to the platform
    uint64_t nMicroseconds = 0; ///< since the process's first launch
    std::string strArguments;   ///< in short
};

/// What the layers in a program have told. It knows nothing of sockets.
class CProgramRecord
{
public:
    /// \param vFolders  where files of OpenCL C may lie whose text is a program's
    explicit CProgramRecord(std::vector<std::string> vFolders) : m_vFolders(std::move(vFolders)) {}

    /// Whether a message tells of a launch that waits.
    static bool IsStop(const SMessage& message);
    /// Takes in what any other message tells: a program, a kernel, a launch that goes by; what is none of them is left.
    /// This and the next throw CProtocolError for a message that isn't what it should be.
    void Note(int nProcess, const SMessage& message);
    /// Of a message "launch" or "stop".
    const SKnownLaunch& AddLaunch(int nProcess, const SMessage& message);
    /// A waiting launch as a launch file would have it, with the program's own build options and "-g".
    SLaunchFile MakeLaunch(int nProcess, const SMessage& message) const;

    const std::vector<SKnownProgram>& GetPrograms() const { return m_vPrograms; }
    const std::vector<SKnownLaunch>& GetLaunches() const { return m_vLaunches; }
    /// Launches by kernel, in the order of their first one.
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

/// What is debugged of a program that there is only a binary of: the binary if it has debug data, else a module of its
/// IL.
std::string MakeDebuggable(const std::vector<char>& vImage);

/// A program's text with a first line that tells the compiler its name.
std::string NameSource(const SKnownProgram& program);

/// The element type of a type of OpenCL C: that of a pointer's target, of a vector's components; bytes for what has
/// none.
const SElementType& FindElementOf(const std::string& strType);

} // namespace KestrelTool

#endif
