#ifndef KESTREL_TESTS_IL_LOGGINGHOST_H
#define KESTREL_TESTS_IL_LOGGINGHOST_H

#include "core/ShaderDebuggerHost.h"

#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

/// A host without a device that keeps log messages. It also stands in for a debugger, as the IL model only asks its
/// debugger for the host.
class CLoggingHost : public CShaderDebuggerHost
{
public:
    CLoggingHost() : CShaderDebuggerHost(nullptr) {}

    bool ExecuteShader() override { return false; }
    LogType GetLoggingLevel() const override { return logERROR; }
    void LogMessage(LogType, const std::string& strMessage) override { m_vMessages.push_back(strMessage); }

    /// All messages since the last call, in order.
    std::string TakeLog()
    {
        std::string strLog;

        for (const std::string& strMessage : m_vMessages)
        {
            strLog += strMessage;
        }

        m_vMessages.clear();
        return strLog;
    }

private:
    std::vector<std::string> m_vMessages;
};

} // namespace OVK_ShaderDebugger

#endif // KESTREL_TESTS_IL_LOGGINGHOST_H
