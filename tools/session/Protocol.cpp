#include "tools/session/Protocol.h"

#include <nlohmann/json.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace KestrelTool
{

namespace
{

const uint32_t s_nMagic = 0x3153454B;
const uint32_t s_nMaxHeader = 64u << 20;
const size_t s_nPiece = size_t(1) << 20;

struct SFrame
{
    uint32_t nMagic;
    uint32_t nHeader;
    uint64_t nBlob;
};

bool SendAll(int nSocket, const void* pBytes, size_t nBytes)
{
    const char* pNext = static_cast<const char*>(pBytes);
    while (nBytes != 0)
    {
        const ssize_t nSent = send(nSocket, pNext, nBytes, MSG_NOSIGNAL);
        if (nSent < 0 && errno == EINTR)
        {
            continue;
        }
        if (nSent <= 0)
        {
            return false;
        }
        pNext += nSent;
        nBytes -= static_cast<size_t>(nSent);
    }
    return true;
}

/// \return false if the other side is gone
bool ReceiveAll(int nSocket, void* pBytes, size_t nBytes)
{
    char* pNext = static_cast<char*>(pBytes);
    while (nBytes != 0)
    {
        const ssize_t nReceived = recv(nSocket, pNext, nBytes, 0);
        if (nReceived < 0 && errno == EINTR)
        {
            continue;
        }
        if (nReceived <= 0)
        {
            return false;
        }
        pNext += nReceived;
        nBytes -= static_cast<size_t>(nReceived);
    }
    return true;
}

/// Allocates memory only as bytes arrive.
bool ReceiveGrowing(int nSocket, uint64_t nBytes, std::vector<unsigned char>& vBytes)
{
    while (vBytes.size() < nBytes)
    {
        const size_t nOld = vBytes.size();
        const size_t nNow = static_cast<size_t>(std::min<uint64_t>(std::max(s_nPiece, nOld), nBytes - nOld));
        vBytes.resize(nOld + nNow);
        if (!ReceiveAll(nSocket, &vBytes[nOld], nNow))
        {
            return false;
        }
    }
    return true;
}

} // namespace

std::string WriteHeader(const nlohmann::json& header)
{
    return header.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool SendMessage(int nSocket, const nlohmann::json& header, const std::vector<unsigned char>& vBlob)
{
    return SendText(nSocket, WriteHeader(header), vBlob);
}

bool SendText(int nSocket, std::string_view strHeader, const std::vector<unsigned char>& vBlob)
{
    SFrame frame = {s_nMagic, static_cast<uint32_t>(strHeader.size()), vBlob.size()};
    if (strHeader.size() > s_nMaxHeader)
    {
        return false;
    }
    // Small messages are sent in one call.
    std::string strBytes(reinterpret_cast<const char*>(&frame), sizeof(frame));
    strBytes += strHeader;
    return SendAll(nSocket, strBytes.data(), strBytes.size()) && SendAll(nSocket, vBlob.data(), vBlob.size());
}

std::optional<SMessage> ReceiveMessage(int nSocket)
{
    SFrame frame = {};
    if (!ReceiveAll(nSocket, &frame, sizeof(frame)))
    {
        return std::nullopt;
    }
    if (frame.nMagic != s_nMagic || frame.nHeader > s_nMaxHeader)
    {
        throw CProtocolError("what came over the socket is no message");
    }
    SMessage message;
    std::vector<unsigned char> vHeader;
    if (!ReceiveGrowing(nSocket, frame.nHeader, vHeader) || !ReceiveGrowing(nSocket, frame.nBlob, message.vBlob))
    {
        return std::nullopt;
    }
    message.header = nlohmann::json::parse(vHeader.begin(), vHeader.end(), nullptr, false);
    if (!message.header.is_object())
    {
        throw CProtocolError("a message's head is no object");
    }
    return message;
}

bool NeedsAnswer(const SMessage& message)
{
    const auto it = message.header.find("what");
    const auto isTold = [&](const char* pszWhat) { return *it == pszWhat; };
    const auto told = {"kernel", "launch", "refused", "waits", "left"};
    return it == message.header.end() || std::none_of(told.begin(), told.end(), isTold);
}

bool IsUnasked(const SMessage& message)
{
    const auto it = message.header.find("unasked");
    return it != message.header.end() && *it == true;
}

bool SendDescriptor(int nSocket, int nDescriptor)
{
    char byte = 'K';
    iovec piece = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* const pHead = CMSG_FIRSTHDR(&message);
    pHead->cmsg_level = SOL_SOCKET;
    pHead->cmsg_type = SCM_RIGHTS;
    pHead->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(pHead), &nDescriptor, sizeof(int));
    return sendmsg(nSocket, &message, MSG_NOSIGNAL) == 1;
}

int ReceiveDescriptor(int nSocket)
{
    char byte = 0;
    iovec piece = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    if (recvmsg(nSocket, &message, MSG_CMSG_CLOEXEC) != 1)
    {
        return -1;
    }
    const cmsghdr* const pHead = CMSG_FIRSTHDR(&message);
    if (pHead == nullptr || pHead->cmsg_type != SCM_RIGHTS || pHead->cmsg_len != CMSG_LEN(sizeof(int)))
    {
        return -1;
    }
    int nDescriptor = -1;
    std::memcpy(&nDescriptor, CMSG_DATA(pHead), sizeof(int));
    return nDescriptor;
}

std::vector<unsigned char> TakePart(const SMessage& message, const nlohmann::json& part)
{
    const bool bPart =
        part.is_array() && part.size() == 2 && part[0].is_number_unsigned() && part[1].is_number_unsigned();
    const uint64_t nFirst = bPart ? part[0].get<uint64_t>() : 0;
    const uint64_t nCount = bPart ? part[1].get<uint64_t>() : 0;
    if (!bPart || nFirst > message.vBlob.size() || nCount > message.vBlob.size() - nFirst)
    {
        throw CProtocolError("a message names contents that it doesn't have");
    }
    const auto itFirst = message.vBlob.begin() + static_cast<std::ptrdiff_t>(nFirst);
    return std::vector<unsigned char>(itFirst, itFirst + static_cast<std::ptrdiff_t>(nCount));
}

bool Wants(const SLaunchRule& rule, const std::string& strKernel, uint32_t nProgram, uint64_t nNumber, uint64_t nTurn)
{
    const uint64_t nCount = rule.bTurns ? nTurn : nNumber;
    return (rule.strKernel.empty() || rule.strKernel == strKernel) &&
           (rule.nProgram == 0 || rule.nProgram == nProgram) && nCount >= rule.nFirst && nCount <= rule.nLast;
}

nlohmann::json DescribeRules(const std::vector<SLaunchRule>& vRules)
{
    nlohmann::json list = nlohmann::json::array();
    for (const SLaunchRule& rule : vRules)
    {
        list.push_back({{"kernel", rule.strKernel},
                        {"program", rule.nProgram},
                        {"first", rule.nFirst},
                        {"last", rule.nLast},
                        {"turns", rule.bTurns}});
    }
    return {{"rules", list}};
}

std::vector<SLaunchRule> ReadRules(const nlohmann::json& message)
{
    std::vector<SLaunchRule> vRules;
    try
    {
        for (const nlohmann::json& rule : message.at("rules"))
        {
            vRules.push_back(
                {rule.at("kernel"), rule.at("program"), rule.at("first"), rule.at("last"), rule.at("turns")});
        }
    }
    catch (const nlohmann::json::exception& error)
    {
        throw CProtocolError(std::string("rules of launches are wrong: ") + error.what());
    }
    return vRules;
}

} // namespace KestrelTool
