#ifndef KESTREL_CORE_LOG_H
#define KESTREL_CORE_LOG_H

#include "core/ShaderDebuggerCommon.h"

#include <string>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerHost;

/// Notes where the next message comes from and which host gets it. Always false, so that
/// `_SetupLog(...) || (_Log(...), ...)` reads as one expression.
bool _SetupLog(CShaderDebuggerHost* pHost, bool console, const std::string& module, const std::string& file, int line,
               const std::string& function);

/// Formats one message and hands it to the host named by the last _SetupLog, if its level lets the
/// type pass: type - 3 is at most the host's GetLoggingLevel(). logRAW always passes. At most
/// 81,919 bytes of it are kept. With no host and no console nothing happens.
/// Exhausted memory costs the message, never the caller.
void _Log(LogType type, const char* fmt, ...) noexcept __attribute__((format(printf, 2, 3)));

/// A line of the call trace, through _Log at logTRACE.
void _LogTrace(LogTraceType traceType, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

/// Doubles every "%", so that a text from outside can pass through _Log as a format.
std::string EscapePercent(const std::string& str);

/// _SetupLog for the macros below; without memory for the names the host alone is noted. Always false.
bool SD_SetupLog(CShaderDebuggerHost* pHost, const char* pszFile, int nLine, const char* pszFunction) noexcept;

/// Logs the text of a failed condition at logASSERT on the host; always false.
bool SD_AssertFailed(CShaderDebuggerHost* pHost, const char* pszText, const char* pszFile, int nLine,
                     const char* pszFunction) noexcept;

} // namespace OVK_ShaderDebugger

/// One message of the debugger core to a session's log; the host may be null.
#define SD_Log(pHost, type, ...)                                                                                       \
    (OVK_ShaderDebugger::SD_SetupLog((pHost), __FILE__, __LINE__, __func__),                                           \
     OVK_ShaderDebugger::_Log((type), __VA_ARGS__), false)

/// Reports a condition that doesn't hold, and gives the condition. The path that the failure takes
/// stands after it: `if (!SD_Assert(GetHost(), p != nullptr)) return false;`
#define SD_Assert(pHost, condition) SD_AssertText(pHost, condition, #condition)

/// The same, with the text of the report given.
#define SD_AssertText(pHost, condition, text)                                                                          \
    (static_cast<bool>(condition) ||                                                                                   \
     (OVK_ShaderDebugger::SD_AssertFailed((pHost), (text), __FILE__, __LINE__, __func__), false))

/// Reports a place that must not be reached; gives false.
#define SD_Break(pHost, text) OVK_ShaderDebugger::SD_AssertFailed((pHost), (text), __FILE__, __LINE__, __func__)

#endif
