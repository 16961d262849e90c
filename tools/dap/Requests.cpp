#include "tools/dap/Requests.h"

#include "tools/session/debug/Debugger.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

namespace
{

const char* const s_Moves[] = {"configurationDone", "continue",        "next",    "stepIn",  "stepOut",
                               "stepBack",          "reverseContinue", "restart", "evaluate"};

/// Whether a request may run kernels for long.
bool IsMove(const SRequest& request)
{
    return std::find(std::begin(s_Moves), std::end(s_Moves), request.strCommand) != std::end(s_Moves);
}

} // namespace

CRequests::~CRequests()
{
    if (m_Thread.joinable())
    {
        m_Thread.join();
    }
}

void CRequests::Start()
{
    m_Thread = std::thread([this] { Gather(); });
}

void CRequests::Gather()
{
    while (std::optional<SRequest> request = m_Channel.Read())
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (request->strCommand == "pause")
        {
            Pause(*request);
        }
        else if (request->strCommand == "cancel")
        {
            Cancel(*request);
        }
        else
        {
            Add(*request);
        }
        // What comes after it would keep the end waiting.
        if (request->strCommand == "disconnect")
        {
            break;
        }
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    End(true);
}

void CRequests::Add(const SRequest& request)
{
    m_nMoves += IsMove(request) ? 1 : 0;
    m_Waiting.push_back(request);
    if (request.strCommand == "disconnect" || request.strCommand == "terminate")
    {
        End(false);
    }
    m_Changed.notify_all();
}

void CRequests::Interrupt()
{
    if (m_nMoves != 0 && m_pDebugger != nullptr)
    {
        m_pDebugger->Interrupt();
    }
}

/// A launch that ends before it notices the interrupt leaves the pause to the program's next one.
void CRequests::Pause(const SRequest& request)
{
    if (m_nMoves == 0)
    {
        m_Channel.Refuse(request, "nothing is running");
        return;
    }
    m_bPause = true;
    Interrupt();
    m_Channel.Answer(request, nullptr);
}

void CRequests::Cancel(const SRequest& request)
{
    const nlohmann::json id = request.arguments.value("requestId", nlohmann::json());
    const bool bProgress = request.arguments.value("progressId", nlohmann::json()).is_string();
    const bool bPresent = m_Present && IsMove(*m_Present) && id == m_Present->nSeq;
    if (bProgress || bPresent)
    {
        Interrupt();
    }
    else if (id.is_number_integer())
    {
        m_Cancelled.insert(id.get<int64_t>());
    }
    m_Channel.Answer(request, nullptr);
}

void CRequests::End(bool bClosed)
{
    m_bEnding = true;
    m_bClosed = m_bClosed || bClosed;
    Interrupt();
    m_Changed.notify_all();
}

void CRequests::SetDebugger(CDebugger* pDebugger)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_pDebugger = pDebugger;
}

/// An interrupt is for all that had been asked when it came.
void CRequests::FinishPresent()
{
    if (m_Present && IsMove(*m_Present) && --m_nMoves == 0)
    {
        m_bPause = false;
        if (m_pDebugger != nullptr)
        {
            m_pDebugger->ClearInterrupts();
        }
    }
    m_Present.reset();
}

std::optional<SRequest> CRequests::Take()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    FinishPresent();
    while (true)
    {
        m_Changed.wait(lock, [this] { return m_bClosed || !m_Waiting.empty(); });
        if (m_Waiting.empty())
        {
            return std::nullopt;
        }
        m_Present = m_Waiting.front();
        m_Waiting.pop_front();
        if (m_Cancelled.erase(m_Present->nSeq) == 0)
        {
            return m_Present;
        }
        m_Channel.Refuse(*m_Present, "cancelled");
        FinishPresent();
    }
}

} // namespace KestrelTool
