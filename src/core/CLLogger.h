#ifndef KESTREL_CORE_CLLOGGER_H
#define KESTREL_CORE_CLLOGGER_H

#include "core/FileLogger.h"

#include <sstream>
#include <string>
#include <string_view>

namespace OVK_ShaderDebugger
{

/// "OVKKestrelUsage.log": the trace of the exported calls, the front end's errors and assertions.
class CLogger : public CFileLogger
{
public:
    CLogger();

    CLogger& operator<<(std::string_view text)
    {
        Write(text);
        return *this;
    }
};

/// The one instance, made on first use and never destroyed.
CLogger& GetLogger();

/// A value as text, in a stream's default format.
template <typename T>
std::string toString(T val)
{
    std::ostringstream stream;
    stream << val;
    return stream.str();
}

/// Writes the exit line of an exported function if the trace is on, and gives the value back.
template <typename T>
T LogReturn(const char* pszFunc, T retVal)
{
    if (GetLogger().IsLogging())
    {
        GetLogger() << std::string(pszFunc) + "() returned " + toString(retVal) + "\n";
    }
    return retVal;
}

/// Writes an assertion line if those are wanted; always false. Exhausted memory costs the line, never the caller.
bool CLD_Report(const char* pszFunction, const char* pszMacro, const char* pszText) noexcept;

/// Writes a line of the trace ("Error: ...\n", "Warning: ...\n") from its parts if it is on; as safe as CLD_Report.
template <typename... Parts>
void CLD_Log(const Parts&... parts) noexcept
{
    try
    {
        if (GetLogger().IsLogging())
        {
            std::ostringstream line;
            (line << ... << parts);
            GetLogger() << line.str();
        }
    }
    catch (...)
    {
    }
}

} // namespace OVK_ShaderDebugger

/// Reports a condition that doesn't hold, and gives the condition.
#define CLD_Assert(condition) CLD_AssertText(condition, #condition)

/// The same, with the text of the report given.
#define CLD_AssertText(condition, text)                                                                                \
    (static_cast<bool>(condition) || (OVK_ShaderDebugger::CLD_Report(__func__, "CLD_Assert", (text)), false))

/// Reports a place that must not be reached; gives false. The text is a literal.
#define CLD_Break(text) OVK_ShaderDebugger::CLD_Report(__func__, "CLD_Break", "\"" text "\"")

#endif
