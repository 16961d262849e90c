#include "core/Log.h"

#include "core/ShaderDebuggerBase.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/StringUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace OVK_ShaderDebugger;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class CNullDevice : public CShaderDebuggerDevice
{
public:
    CNullDevice() : CShaderDebuggerDevice(nullptr) {}
    bool EnterDebuggingMode() override { return true; }
    bool ExitDebuggingMode() override { return true; }
    bool GetDeviceBufferDesc(ShaderType, int, BufferDesc&) override { return false; }
    CShaderDebuggerDeviceBuffer* CreateDeviceBuffer(const BufferDesc&) override { return nullptr; }
    unsigned int GetNumDeviceBuffers(ShaderType) const override { return 0; }
    CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType, std::string) override { return nullptr; }
    CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType, unsigned int) override { return nullptr; }
    bool SetDeviceBuffer(ShaderType, std::string, CShaderDebuggerDeviceBuffer*) override { return false; }
    bool SetDeviceBuffer(ShaderType, unsigned int, CShaderDebuggerDeviceBuffer*) override { return false; }
    bool CreateShader(ShaderType, const void*, size_t, void**) override { return false; }
    bool SetShader(ShaderType, const void*, size_t) override { return false; }
    void* GetShader(ShaderType) override { return nullptr; }
    std::string GetShaderFunctionName(ShaderType) const override { return std::string(); }
    bool DisassembleShader(const void*, size_t, std::string&) override { return false; }
};

class CRecordingHost : public CShaderDebuggerHost
{
public:
    CRecordingHost() : CShaderDebuggerHost(new CNullDevice) {}
    bool ExecuteShader() override { return false; }
    void LogMessage(LogType, const std::string& strMessage) override { m_vMessages.push_back(strMessage); }
    LogType GetLoggingLevel() const override { return m_nLevel; }

    LogType m_nLevel = logERROR;
    std::vector<std::string> m_vMessages;
};

} // namespace

struct FilterCase
{
    int nLevel;
    int nHighestType; ///< the last type that passes; 1 is logRAW alone
};

TEST(Log, TheLevelLetsThreeMoreTypesPass)
{
    for (const FilterCase& c : {FilterCase{3, 6}, {0, 3}, {4, 7}, {8, 7}, {-1, 2}, {-2, 1}})
    {
        CRecordingHost host;
        host.m_nLevel = static_cast<LogType>(c.nLevel);
        for (int nType = logRAW; nType <= logVERBOSE; ++nType)
        {
            SD_Log(&host, static_cast<LogType>(nType), "%d", nType);
        }
        EXPECT_EQ(static_cast<int>(host.m_vMessages.size()), c.nHighestType) << c.nLevel;
    }
}

TEST(Log, MessagesCarryThePrefixOfTheirType)
{
    CRecordingHost host;
    host.m_nLevel = logMAX;
    SD_Log(&host, logRAW, "a %s", "b");
    SD_Log(&host, logERROR, "%s", EscapePercent("100%").c_str());
    SD_Log(&host, logVERBOSE, "c");
    EXPECT_FALSE(SD_Assert(&host, 1 == 2));
    EXPECT_TRUE(SD_Assert(&host, 1 == 1));
    EXPECT_THAT(host.m_vMessages, ElementsAre("a b", "Error:   100%%", "Unknown:   c", "Assert:   1 == 2"));
}

TEST(Log, LongMessagesAreCut)
{
    CRecordingHost host;
    SD_Log(&host, logERROR, "%s", std::string(100000, 'x').c_str());
    ASSERT_EQ(host.m_vMessages.size(), 1u);
    EXPECT_EQ(host.m_vMessages[0].size(), 81919u);
}

TEST(Log, WithoutAHostNothingHappens)
{
    SD_Log(nullptr, logERROR, "%s", "lost");
    EXPECT_FALSE(SD_Break(nullptr, "lost"));
}

TEST(StringUtils, LinesAndTrimming)
{
    std::vector<std::string> vLines;
    EXPECT_EQ(StringUtils::SplitStringIntoLines("a\n b\t\n", vLines, true), 3u);
    EXPECT_THAT(vLines, ElementsAre("a", "b", ""));
    std::string strText = "  a b \t";
    StringUtils::TrimString(strText);
    EXPECT_EQ(strText, "a b");
    strText = " \r\n";
    StringUtils::TrimString(strText);
    EXPECT_THAT(strText, IsEmpty());
}
