#ifndef KESTREL_CORE_FILELOGGER_H
#define KESTREL_CORE_FILELOGGER_H

#include "core/ShaderDebuggerCommon.h"

#include <memory>
#include <string>
#include <string_view>

namespace OVK_ShaderDebugger
{

/// The level in the environment variable OVK_CL_DEBUG_LOG_LEVEL: 3 if it isn't set, 0 if it isn't a
/// number, no range check.
LogType GetEnvLogLevel();

/// Where a log file lies: in the folder that the environment variable OVK_CL_DEBUG_LOG_FOLDER names, or in the working
/// directory if it isn't set or is empty.
std::string GetLogPath(const char* pszFileName);

/// A log file at its path, truncated when opened, with a level fixed at creation. If the file can't be opened, what is
/// written is lost. May be used by several threads: each write is whole, but a line of several writes may interleave
/// with another's.
class CFileLogger
{
public:
    explicit CFileLogger(const char* pszFileName);
    ~CFileLogger();
    CFileLogger(const CFileLogger&) = delete;
    CFileLogger& operator=(const CFileLogger&) = delete;

    /// From logTRACE on: the trace is written.
    bool IsLogging() const { return m_nLogLevel >= logTRACE; }
    /// At logASSERT exactly: assertion lines are written.
    bool IsAssertLogging() const { return m_nLogLevel == logASSERT; }

    /// Nothing is written at other levels.
    void Write(std::string_view text);

private:
    struct SFile;

    const int m_nLogLevel;
    std::unique_ptr<SFile> m_pFile;
};

} // namespace OVK_ShaderDebugger

#endif
