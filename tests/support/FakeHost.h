#ifndef KESTREL_TESTS_SUPPORT_FAKEHOST_H
#define KESTREL_TESTS_SUPPORT_FAKEHOST_H

#include "core/ShaderDebuggerHost.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace OVK_ShaderDebugger
{

/// A host for tests of the layers above the device. It keeps log messages, and answers from its fields. Without a
/// device and a debugger it also stands in for the debugger: it is its own host and keeps the last error. With a device
/// and a registered debugger it forwards to both, like a real host.
class CFakeHost : public CShaderDebuggerHost
{
public:
    /// Takes ownership of the device, which may be null.
    explicit CFakeHost(CShaderDebuggerDevice* pDevice = nullptr) : CShaderDebuggerHost(pDevice) {}

    bool ExecuteShader() override
    {
        ++nRuns;
        return !onExecute || onExecute();
    }

    std::string GetShaderFunctionName(ShaderType) const override { return strKernelName; }

    void GetDeviceName(std::string& strDevice) override { strDevice = strDeviceName; }

    bool DisassembleShader(const void* pTokens, size_t nBytes, std::string& strShader) override
    {
        return onDisassemble && onDisassemble(pTokens, nBytes, strShader);
    }

    LogType GetLoggingLevel() const override { return level; }

    void LogMessage(LogType type, const std::string& strMessage) override { vLog.emplace_back(type, strMessage); }

    bool GetLastError(std::string& strError) override
    {
        if (GetDebugger() != nullptr)
        {
            return CShaderDebuggerHost::GetLastError(strError);
        }

        strError = strLastError;
        return !strError.empty();
    }

    void SetLastError(const std::string& strError) override
    {
        strLastError = strError;
        CShaderDebuggerHost::SetLastError(strError);
    }

    /// How often a text occurs in the messages of a type.
    size_t CountLog(LogType type, const std::string& strText) const
    {
        size_t nCount = 0;

        for (const auto& message : vLog)
        {
            nCount += message.first == type && message.second.find(strText) != std::string::npos;
        }

        return nCount;
    }

    std::string strKernelName = "k";
    std::string strDeviceName;
    std::string strLastError;
    LogType level = logERROR; ///< lets all messages through but those at logVERBOSE
    size_t nRuns = 0;
    std::function<bool()> onExecute;
    std::function<bool(const void*, size_t, std::string&)> onDisassemble;
    std::vector<std::pair<LogType, std::string>> vLog;
};

} // namespace OVK_ShaderDebugger

#endif
