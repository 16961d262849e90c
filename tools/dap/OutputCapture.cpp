#include "tools/dap/OutputCapture.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

namespace KestrelTool
{

namespace
{

/// How many bytes at a text's end begin a character of UTF-8 that isn't whole.
size_t CountBroken(const std::string& strText)
{
    for (size_t nBack = 1; nBack <= 3 && nBack <= strText.size(); ++nBack)
    {
        const unsigned char c = static_cast<unsigned char>(strText[strText.size() - nBack]);
        if (c >= 0xC0)
        {
            const size_t nWhole = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2;
            return nWhole > nBack ? nBack : 0;
        }
        if (c < 0x80)
        {
            return 0;
        }
    }
    return 0;
}

void CloseAll(std::initializer_list<int*> descriptors)
{
    for (int* pDescriptor : descriptors)
    {
        if (*pDescriptor >= 0)
        {
            close(*pDescriptor);
            *pDescriptor = -1;
        }
    }
}

} // namespace

COutputCapture::COutputCapture(CChannel& channel)
    : m_Channel(channel), m_Streams{{STDOUT_FILENO, "stdout", -1, -1, ""}, {STDERR_FILENO, "stderr", -1, -1, ""}}
{
    if (pipe2(m_nEnd, O_CLOEXEC) != 0)
    {
        return; // without descriptors nothing is captured
    }
    std::fflush(nullptr);
    for (SStream& stream : m_Streams)
    {
        Divert(stream);
    }
    m_Thread = std::thread([this] { Pump(); });
}

COutputCapture::~COutputCapture()
{
    std::cout << std::flush;
    std::fflush(nullptr);
    for (SStream& stream : m_Streams)
    {
        if (stream.nSaved >= 0)
        {
            dup2(stream.nSaved, stream.nDescriptor);
            CloseAll({&stream.nSaved});
        }
    }
    CloseAll({&m_nEnd[1]});
    if (m_Thread.joinable())
    {
        m_Thread.join();
    }
    for (SStream& stream : m_Streams)
    {
        CloseAll({&stream.nPipe});
    }
    CloseAll({&m_nEnd[0]});
}

void COutputCapture::Divert(SStream& stream) const
{
    int ends[2] = {-1, -1};
    stream.nSaved = fcntl(stream.nDescriptor, F_DUPFD_CLOEXEC, 3);
    if (stream.nSaved < 0 || pipe2(ends, O_CLOEXEC) != 0)
    {
        return;
    }
    dup2(ends[1], stream.nDescriptor);
    close(ends[1]);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    stream.nPipe = ends[0];
}

/// \return whether there may be more
bool COutputCapture::Forward(SStream& stream)
{
    char bytes[4096];
    const ssize_t nBytes = read(stream.nPipe, bytes, sizeof(bytes));
    if (nBytes <= 0)
    {
        return nBytes < 0 && errno == EINTR;
    }
    std::string strText = stream.strHeld + std::string(bytes, static_cast<size_t>(nBytes));
    const size_t nWhole = strText.size() - CountBroken(strText);
    stream.strHeld = strText.substr(nWhole);
    m_Channel.Print(stream.pszCategory, strText.substr(0, nWhole));
    return true;
}

void COutputCapture::Drain()
{
    std::cout << std::flush;
    std::fflush(nullptr);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (SStream& stream : m_Streams)
    {
        while (stream.nPipe >= 0 && Forward(stream))
        {
        }
    }
}

void COutputCapture::Pump()
{
    pollfd polled[3] = {{m_Streams[0].nPipe, POLLIN, 0}, {m_Streams[1].nPipe, POLLIN, 0}, {m_nEnd[0], POLLIN, 0}};
    while (poll(polled, 3, -1) >= 0 || errno == EINTR)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        bool bAny = false;
        for (size_t n = 0; n < 2; ++n)
        {
            if ((polled[n].revents & (POLLIN | POLLHUP)) != 0)
            {
                const bool bMore = Forward(m_Streams[n]);
                polled[n].fd = bMore || (polled[n].revents & POLLHUP) == 0 ? polled[n].fd : -1;
                bAny = bAny || bMore;
            }
        }
        if (!bAny && polled[2].revents != 0)
        {
            return;
        }
    }
}

} // namespace KestrelTool
