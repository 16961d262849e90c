#include "tools/dap/Adapter.h"

#include "tools/dap/Conversation.h"
#include "tools/dap/OutputCapture.h"
#include "tools/session/ExitCode.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

namespace KestrelTool
{

namespace
{

/// A descriptor of ours.
class CDescriptor
{
public:
    explicit CDescriptor(int nDescriptor) : m_nDescriptor(nDescriptor) {}
    ~CDescriptor()
    {
        if (m_nDescriptor >= 0)
        {
            close(m_nDescriptor);
        }
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    int Get() const { return m_nDescriptor; }

private:
    int m_nDescriptor;
};

void Converse(const SDebuggeeSetup& setup, int nInput, int nOutput)
{
    CChannel channel(nInput, nOutput);
    COutputCapture capture(channel);
    CConversation(setup, channel, capture).Run();
}

/// A socket that listens on the loopback address; the port is what it has got.
int Listen(unsigned int& nPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int nOn = 1;
    setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof(nOn));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(nPort));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nSize = sizeof(address);
    if (nSocket < 0 || bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(nSocket, 1) != 0 || getsockname(nSocket, reinterpret_cast<sockaddr*>(&address), &nSize) != 0)
    {
        const std::string strReason = std::strerror(errno);
        if (nSocket >= 0)
        {
            close(nSocket);
        }
        throw CPlatformError("there is no port " + std::to_string(nPort) + " to listen on: " + strReason);
    }
    nPort = ntohs(address.sin_port);
    return nSocket;
}

} // namespace

int RunDebugAdapter(const SDebuggeeSetup& setup, std::optional<unsigned int> port)
{
    std::signal(SIGPIPE, SIG_IGN); // a client that is gone is found out by reading
    if (!port)
    {
        const CDescriptor output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
        Converse(setup, STDIN_FILENO, output.Get());
        return EXIT_GOOD;
    }
    unsigned int nPort = *port;
    const CDescriptor listener(Listen(nPort));
    std::cout << "listening on 127.0.0.1:" << nPort << std::endl;
    while (true)
    {
        const CDescriptor connection(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.Get() >= 0)
        {
            Converse(setup, connection.Get(), connection.Get());
        }
        else if (errno != EINTR && errno != ECONNABORTED)
        {
            throw CPlatformError(std::string("no connection can be taken: ") + std::strerror(errno));
        }
    }
}

} // namespace KestrelTool
