#include "tools/session/Protocol.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <thread>

using namespace KestrelTool;

namespace
{

class Protocol : public testing::Test
{
protected:
    Protocol() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_Sockets), 0); }
    ~Protocol() override
    {
        close(m_Sockets[0]);
        CloseSender();
    }
    void CloseSender()
    {
        if (m_Sockets[1] >= 0)
        {
            close(m_Sockets[1]);
            m_Sockets[1] = -1;
        }
    }
    /// Sends a frame with some sizes, and then bytes, after which nothing more comes.
    void SendBytes(uint32_t nMagic, uint32_t nHeader, uint64_t nBlob, const std::string& strBytes)
    {
        std::string strAll(16, '\0');
        std::memcpy(&strAll[0], &nMagic, 4);
        std::memcpy(&strAll[4], &nHeader, 4);
        std::memcpy(&strAll[8], &nBlob, 8);
        strAll += strBytes;
        ASSERT_EQ(send(m_Sockets[1], strAll.data(), strAll.size(), 0), static_cast<ssize_t>(strAll.size()));
        CloseSender();
    }

    int m_Sockets[2] = {-1, -1};
};

const uint32_t s_nMagic = 0x3153454B; // "KES1"

} // namespace

TEST_F(Protocol, CarriesMoreThanASocketHolds)
{
    std::vector<unsigned char> vBlob(5000000);
    for (size_t i = 0; i < vBlob.size(); ++i)
    {
        vBlob[i] = static_cast<unsigned char>(i * 7 / 3);
    }
    std::thread sender([&] { EXPECT_TRUE(SendMessage(m_Sockets[1], {{"what", "stop"}}, vBlob)); });
    const std::optional<SMessage> message = ReceiveMessage(m_Sockets[0]);
    sender.join();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->header["what"], "stop");
    EXPECT_EQ(message->vBlob, vBlob);
}

TEST_F(Protocol, BelievesSizesOnlyAsBytesCome)
{
    SendBytes(s_nMagic, 2, uint64_t(1) << 62, "{}some bytes");
    EXPECT_FALSE(ReceiveMessage(m_Sockets[0]));
}

TEST_F(Protocol, RefusesWhatIsNoMessage)
{
    SendBytes(s_nMagic + 1, 2, 0, "{}");
    EXPECT_THROW(ReceiveMessage(m_Sockets[0]), CProtocolError);
}

TEST_F(Protocol, RefusesAHeadThatIsNoObject)
{
    SendBytes(s_nMagic, 2, 0, "[]");
    EXPECT_THROW(ReceiveMessage(m_Sockets[0]), CProtocolError);
}

TEST_F(Protocol, SaysThatNobodyReads)
{
    close(m_Sockets[0]);
    m_Sockets[0] = dup(m_Sockets[1]);
    EXPECT_FALSE(SendMessage(m_Sockets[1], {{"what", "hello"}}));
}

TEST_F(Protocol, FindsOnlyPartsThatAreThere)
{
    SMessage message;
    message.vBlob = {1, 2, 3, 4};
    EXPECT_EQ(TakePart(message, nlohmann::json::parse("[1, 3]")), (std::vector<unsigned char>{2, 3, 4}));
    EXPECT_TRUE(TakePart(message, nlohmann::json::parse("[4, 0]")).empty());
    for (const char* pszPart : {"[1, 4]", "[5, 0]", "[18446744073709551615, 2]", "[-1, 1]", "[0]", "[0, 1.5]", "{}"})
    {
        EXPECT_THROW(TakePart(message, nlohmann::json::parse(pszPart)), CProtocolError) << pszPart;
    }
}

TEST_F(Protocol, ReadsRulesOrRefusesThem)
{
    SLaunchRule rule;
    rule.strKernel = "k";
    rule.nProgram = 3;
    rule.nFirst = 2;
    rule.bTurns = true;
    const std::vector<SLaunchRule> vRules = ReadRules(DescribeRules({rule}));
    ASSERT_EQ(vRules.size(), 1u);
    EXPECT_EQ(vRules[0].strKernel, "k");
    EXPECT_EQ(vRules[0].nProgram, 3u);
    EXPECT_EQ(vRules[0].nFirst, 2u);
    EXPECT_EQ(vRules[0].nLast, ~uint64_t(0));
    EXPECT_TRUE(vRules[0].bTurns);
    for (const char* pszRules : {"{}", R"({"rules": [{}]})", R"({"rules": [1]})", R"({"rules": [{"kernel": 1}]})"})
    {
        EXPECT_THROW(ReadRules(nlohmann::json::parse(pszRules)), CProtocolError) << pszRules;
    }
}
