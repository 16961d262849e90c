#ifndef KESTREL_TOOLS_LAYER_CONNECTION_H
#define KESTREL_TOOLS_LAYER_CONNECTION_H

#include "tools/session/Protocol.h"

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>

namespace KestrelLayer
{

/// This process's socket to the debugger. It is created once and never destroyed, as other threads may use it when the
/// process ends. Any thread may call all functions.
class CConnection
{
public:
    /// Connects through the door that the environment names. Without a door, or a debugger behind it, the layer stays
    /// off.
    static CConnection& Get();

    /// Whether the debugger is connected. In a child after fork it isn't, until the child executes another program.
    bool IsOn() const { return m_bOn; }

    /// Sends the debugger a message without an answer.
    /// \param strHeader  JSON text
    void Tell(std::string_view strHeader);
    /// Sends a question, waits as long as the answer takes, and keeps the rules in it. One thread at a time.
    void Ask(const nlohmann::json& header, const std::vector<unsigned char>& vBlob = {});
    /// Takes the rules that the debugger has sent unasked, if there are any.
    void TakeUnasked();
    /// Whether the rules select a launch.
    bool Wants(const std::string& strKernel, uint32_t nProgram, uint64_t nNumber, uint64_t nTurn) const;

private:
    CConnection();
    bool Open();
    bool IsOurs() const;
    bool HasInput() const;
    std::optional<KestrelTool::SMessage> Receive();
    bool Send(std::string_view strHeader, const std::vector<unsigned char>& vBlob);
    void SetRules(std::vector<KestrelTool::SLaunchRule> vRules);
    void Lose();

    std::atomic<bool> m_bOn{false};
    int m_nSocket = -1;
    ino_t m_nInode = 0;
    std::mutex m_AskLock;
    std::mutex m_SendLock;
    std::shared_ptr<const std::vector<KestrelTool::SLaunchRule>> m_pRules;
};

} // namespace KestrelLayer

#endif
