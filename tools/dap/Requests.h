#ifndef KESTREL_TOOLS_DAP_REQUESTS_H
#define KESTREL_TOOLS_DAP_REQUESTS_H

#include "tools/dap/Channel.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

namespace KestrelTool
{

class CDebugger;

/// The requests of a conversation, in order, as the reading thread gathers them. What can't wait until the session's
/// thread has time is done at once: "pause" and "cancel" interrupt what goes on, and the end of the conversation does.
class CRequests
{
public:
    explicit CRequests(CChannel& channel) : m_Channel(channel) {}
    ~CRequests();
    CRequests(const CRequests&) = delete;
    CRequests& operator=(const CRequests&) = delete;

    /// Starts to read.
    void Start();
    /// The next one; waits for it. The one before is over with this. \return nothing at the conversation's end
    std::optional<SRequest> Take();
    /// Whom interrupts go to; null for nobody.
    void SetDebugger(CDebugger* pDebugger);
    /// Whether the client has gone, or wants to: nothing should go on.
    bool IsEnding() const { return m_bEnding; }
    /// Whether a pause was asked for that no debugger has got yet. It is asked for once.
    bool TakePause() { return m_bPause.exchange(false); }

private:
    void Gather();
    void Add(const SRequest& request);
    void Pause(const SRequest& request);
    void Cancel(const SRequest& request);
    void Interrupt();
    void End(bool bClosed);
    void FinishPresent();

    CChannel& m_Channel;
    std::thread m_Thread;
    std::atomic<bool> m_bEnding{false};
    std::atomic<bool> m_bPause{false};

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<SRequest> m_Waiting;
    std::set<int64_t> m_Cancelled;
    std::optional<SRequest> m_Present;
    CDebugger* m_pDebugger = nullptr;
    size_t m_nMoves = 0; ///< requests that make the kernel go on, waiting or present
    bool m_bClosed = false;
};

} // namespace KestrelTool

#endif
