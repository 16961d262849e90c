#include "tools/layer/Connection.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace KestrelLayer
{

using namespace KestrelTool;

namespace
{

/// The inode of a socket; 0 if the descriptor isn't an open socket.
ino_t FindInode(int nDescriptor)
{
    struct stat status = {};
    return fstat(nDescriptor, &status) == 0 && S_ISSOCK(status.st_mode) ? status.st_ino : 0;
}

/// The door's descriptor; -1 if there is none, or if its number is used for something else by now.
int FindDoor()
{
    const char* const pszDoor = std::getenv(g_pszDoorVariable);
    int nDescriptor = -1;
    unsigned long long nInode = 0;
    if (pszDoor == nullptr || std::sscanf(pszDoor, "%d:%llu", &nDescriptor, &nInode) != 2 || nInode == 0)
    {
        return -1;
    }
    return FindInode(nDescriptor) == nInode ? nDescriptor : -1;
}

} // namespace

CConnection& CConnection::Get()
{
    static CConnection* const s_pConnection = new CConnection;
    return *s_pConnection;
}

CConnection::CConnection() : m_pRules(std::make_shared<const std::vector<SLaunchRule>>())
{
    m_bOn = Open();
    if (m_bOn)
    {
        // A child process mustn't write to the parent's socket.
        pthread_atfork(nullptr, nullptr,
                       []
                       {
                           CConnection& connection = Get();
                           if (connection.m_bOn.exchange(false))
                           {
                               close(connection.m_nSocket);
                           }
                       });
        Ask({{"what", "hello"}, {"pid", getpid()}});
    }
}

bool CConnection::Open()
{
    const int nDoor = FindDoor();
    int sockets[2] = {-1, -1};
    if (nDoor < 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
    {
        return false;
    }
    const bool bSent = SendDescriptor(nDoor, sockets[1]);
    close(sockets[1]);
    m_nSocket = sockets[0];
    m_nInode = FindInode(m_nSocket);
    if (!bSent)
    {
        close(m_nSocket);
    }
    return bSent;
}

/// A program that closes all descriptors may have opened something else with the socket's number.
bool CConnection::IsOurs() const
{
    return FindInode(m_nSocket) == m_nInode;
}

/// If the debugger is gone, the program ends too. But a program that has closed the socket itself continues,
/// undebugged.
void CConnection::Lose()
{
    if (m_bOn.exchange(false) && IsOurs())
    {
        kill(getpid(), SIGTERM);
    }
}

bool CConnection::Send(std::string_view strHeader, const std::vector<unsigned char>& vBlob)
{
    const std::lock_guard<std::mutex> lock(m_SendLock);
    return IsOurs() && SendText(m_nSocket, strHeader, vBlob);
}

void CConnection::Tell(std::string_view strHeader)
{
    if (m_bOn && !Send(strHeader, {}))
    {
        Lose();
    }
}

void CConnection::Ask(const nlohmann::json& header, const std::vector<unsigned char>& vBlob)
{
    const std::lock_guard<std::mutex> lock(m_AskLock);
    if (!m_bOn)
    {
        return;
    }
    bool bAnswered = !Send(WriteHeader(header), vBlob);
    if (bAnswered)
    {
        Lose();
    }
    while (!bAnswered)
    {
        const std::optional<SMessage> answer = Receive();
        bAnswered = !answer || !IsUnasked(*answer);
    }
}

void CConnection::TakeUnasked()
{
    // While another thread asks, it takes them.
    const std::unique_lock<std::mutex> lock(m_AskLock, std::try_to_lock);
    while (lock.owns_lock() && m_bOn && HasInput() && IsOurs() && Receive())
    {
    }
}

bool CConnection::HasInput() const
{
    pollfd polled = {m_nSocket, POLLIN, 0};
    return poll(&polled, 1, 0) == 1;
}

/// Waits for a message, and keeps the rules in it. \return nothing, with the connection lost, if there is none
std::optional<SMessage> CConnection::Receive()
{
    try
    {
        std::optional<SMessage> message = ReceiveMessage(m_nSocket);
        if (message)
        {
            SetRules(ReadRules(message->header));
            return message;
        }
    }
    catch (const CProtocolError&)
    {
        // Handled as if the debugger had gone.
    }
    Lose();
    return std::nullopt;
}

void CConnection::SetRules(std::vector<SLaunchRule> vRules)
{
    std::atomic_store(&m_pRules, std::make_shared<const std::vector<SLaunchRule>>(std::move(vRules)));
}

bool CConnection::Wants(const std::string& strKernel, uint32_t nProgram, uint64_t nNumber, uint64_t nTurn) const
{
    const std::shared_ptr<const std::vector<SLaunchRule>> pRules = std::atomic_load(&m_pRules);
    return std::any_of(pRules->begin(), pRules->end(),
                       [&](const SLaunchRule& rule)
                       { return KestrelTool::Wants(rule, strKernel, nProgram, nNumber, nTurn); });
}

} // namespace KestrelLayer
