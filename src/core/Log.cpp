#include "core/Log.h"

#include "core/ShaderDebuggerHost.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

const size_t s_nBufferSize = 0x14000;
const char s_szTruncated[] = " ... \n";
const int s_nIndentStep = 4;

// One set a thread: a session is set up on the enqueuing thread while another may be stepping, and
// a message must not reach the other's host.
thread_local CShaderDebuggerHost* s_pHost = nullptr;
thread_local bool s_LogConsole = false;
thread_local std::string s_LogModule;
thread_local std::string s_LogFile = "Unknown";
thread_local std::string s_LogFunction = "Unknown";
thread_local int s_LogLine = 0;
thread_local int logIndent = 0;

const char* GetPrefix(LogType type)
{
    static const struct
    {
        LogType type;
        const char* pszPrefix;
    } s_Prefixes[] = {
        {logRAW, ""},
        {logASSERT, "Assert:   "},
        {logERROR, "Error:   "},
        {logWARNING, "Warning:   "},
        {logMESSAGE, "Message:   "},
        {logTRACE, "Trace:   "},
    };
    for (const auto& entry : s_Prefixes)
    {
        if (entry.type == type)
        {
            return entry.pszPrefix;
        }
    }
    return "Unknown:   ";
}

/// The prefix and the formatted text, cut to the size of the message buffer. A message whose
/// format fails keeps its prefix and ends in " ... \n".
std::string FormatMessage(const std::string& strLead, const char* fmt, va_list args)
{
    std::string strMessage(s_nBufferSize, '\0');
    const size_t nLead = std::min(strLead.size(), s_nBufferSize - 1);
    strMessage.replace(0, nLead, strLead, 0, nLead);

    const int nText = std::vsnprintf(&strMessage[nLead], s_nBufferSize - nLead, fmt, args);
    if (nText < 0)
    {
        const size_t nEnd = s_nBufferSize - sizeof(s_szTruncated);
        strMessage.resize(nLead);
        strMessage.resize(std::max(nLead, nEnd), ' ');
        return strMessage + s_szTruncated;
    }
    strMessage.resize(std::min(nLead + static_cast<size_t>(nText), s_nBufferSize - 1));
    return strMessage;
}

bool PassesFilter(LogType type)
{
    return type == logRAW || static_cast<int>(type) - 3 <= static_cast<int>(s_pHost->GetLoggingLevel());
}

void Emit(LogType type, const std::string& strMessage)
{
    if (s_LogConsole)
    {
        std::fputs(strMessage.c_str(), stdout);
    }
    if (s_pHost != nullptr && PassesFilter(type))
    {
        s_pHost->LogMessage(type, strMessage);
    }
}

/// Whether any log takes a message of this type; if none does, it needn't be formatted.
bool IsWanted(LogType type)
{
    return s_LogConsole || (s_pHost != nullptr && PassesFilter(type));
}

} // namespace

bool _SetupLog(CShaderDebuggerHost* pHost, bool console, const std::string& module, const std::string& file, int line,
               const std::string& function)
{
    s_pHost = pHost;
    s_LogConsole = console;
    s_LogModule = module;
    s_LogFile = file;
    s_LogLine = line;
    s_LogFunction = function;
    return false;
}

void _Log(LogType type, const char* fmt, ...) noexcept
{
    if (!IsWanted(type))
    {
        return;
    }
    va_list args;
    va_start(args, fmt);
    try
    {
        Emit(type, FormatMessage(GetPrefix(type), fmt, args));
    }
    catch (...)
    {
    }
    va_end(args);
}

void _LogTrace(LogTraceType traceType, const char* fmt, ...)
{
    std::string strLead;
    if (traceType == traceENTER)
    {
        strLead = "Enter: " + s_LogFunction + "() ";
    }
    else if (traceType == traceEXIT)
    {
        logIndent = std::max(0, logIndent - s_nIndentStep);
        strLead = "Exit: " + s_LogFunction + "() " + std::string(s_nIndentStep, ' ');
    }

    va_list args;
    va_start(args, fmt);
    const std::string strLine = FormatMessage(strLead, fmt, args);
    va_end(args);
    _Log(logTRACE, "%s\n", strLine.c_str());
}

std::string EscapePercent(const std::string& str)
{
    std::string strEscaped;
    strEscaped.reserve(str.size());
    for (const char c : str)
    {
        strEscaped.append(c == '%' ? 2 : 1, c);
    }
    return strEscaped;
}

bool SD_SetupLog(CShaderDebuggerHost* pHost, const char* pszFile, int nLine, const char* pszFunction) noexcept
{
    try
    {
        _SetupLog(pHost, false, "Kestrel", pszFile, nLine, pszFunction);
    }
    catch (...)
    {
        s_pHost = pHost;
        s_LogConsole = false;
    }
    return false;
}

bool SD_AssertFailed(CShaderDebuggerHost* pHost, const char* pszText, const char* pszFile, int nLine,
                     const char* pszFunction) noexcept
{
    SD_SetupLog(pHost, pszFile, nLine, pszFunction);
    _Log(logASSERT, "%s", pszText);
    return false;
}

} // namespace OVK_ShaderDebugger
