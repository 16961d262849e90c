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

/// This process's socket to the debugger. It is made once and never taken down: other threads may be inside it when the
/// process ends. All functions may be called from any thread.
class CConnection
{
public:
    /// Goes through the door that the environment names. Without one, or without anybody behind it, nothing is on.
    static CConnection& Get();

    /// Whether anybody listens. A child of fork that hasn't executed another program isn't listened to.
    bool IsOn() const { return m_bOn; }

    /// Tells the debugger something that needs no answer.
    /// \param strHeader  JSON text
    void Tell(std::string_view strHeader);
    /// Asks the debugger, waits as long as the answer takes, and keeps the rules that it brings. One thread at a time.
    void Ask(const nlohmann::json& header, const std::vector<unsigned char>& vBlob = {});
    /// Whether the rules want a launch.
    bool Wants(const std::string& strKernel, uint32_t nProgram, uint64_t nNumber, uint64_t nTurn) const;

private:
    CConnection();
    bool Open();
    bool IsOurs() const;
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
