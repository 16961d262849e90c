#include "tools/dap/Channel.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cerrno>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// A request that a text holds; nothing if it holds none.
std::optional<SRequest> ReadRequest(const std::string& strText)
{
    const json message = json::parse(strText, nullptr, false);
    if (!message.is_object() || message.value("type", json()) != "request" ||
        !message.value("seq", json()).is_number_integer() || !message.value("command", json()).is_string())
    {
        return std::nullopt;
    }
    SRequest request;
    request.nSeq = message["seq"];
    request.strCommand = message["command"];
    const json arguments = message.value("arguments", json());
    request.arguments = arguments.is_object() ? arguments : json::object();
    return request;
}

} // namespace

/// \throws CFramingError
std::optional<std::string> CChannel::ReadText()
{
    while (true)
    {
        if (std::optional<std::string> text = m_Reader.Take())
        {
            return text;
        }
        char bytes[4096];
        const ssize_t nBytes = read(m_nInput, bytes, sizeof(bytes));
        if (nBytes == 0 || (nBytes < 0 && errno != EINTR))
        {
            return std::nullopt;
        }
        m_Reader.Add(bytes, nBytes > 0 ? static_cast<size_t>(nBytes) : 0);
    }
}

std::optional<SRequest> CChannel::Read()
{
    try
    {
        while (const std::optional<std::string> text = ReadText())
        {
            if (std::optional<SRequest> request = ReadRequest(*text))
            {
                return request;
            }
            Print("stderr", "a message that is no request is passed over\n");
        }
    }
    catch (const CFramingError& error)
    {
        Print("stderr", std::string(error.what()) + "; the conversation ends\n");
    }
    return std::nullopt;
}

void CChannel::Write(json message)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    message["seq"] = ++m_nSeq;
    const std::string strFrame = MakeFrame(message.dump(-1, ' ', false, json::error_handler_t::replace));
    for (size_t nDone = 0; nDone < strFrame.size();)
    {
        const ssize_t nBytes = write(m_nOutput, strFrame.data() + nDone, strFrame.size() - nDone);
        if (nBytes < 0 && errno != EINTR)
        {
            return;
        }
        nDone += nBytes > 0 ? static_cast<size_t>(nBytes) : 0;
    }
}

void CChannel::Answer(const SRequest& request, const json& body)
{
    json message = {
        {"type", "response"}, {"request_seq", request.nSeq}, {"success", true}, {"command", request.strCommand}};
    if (!body.is_null())
    {
        message["body"] = body;
    }
    Write(std::move(message));
}

void CChannel::Refuse(const SRequest& request, const std::string& strWhy)
{
    // Braces stand for variables in the format of an error.
    Write({{"type", "response"},
           {"request_seq", request.nSeq},
           {"success", false},
           {"command", request.strCommand},
           {"message", strWhy},
           {"body",
            {{"error", {{"id", 1}, {"format", "{why}"}, {"variables", {{"why", strWhy}}}, {"showUser", true}}}}}});
}

void CChannel::Tell(const std::string& strEvent, const json& body)
{
    Write({{"type", "event"}, {"event", strEvent}, {"body", body}});
}

void CChannel::Print(const std::string& strCategory, const std::string& strText)
{
    if (!strText.empty())
    {
        Tell("output", {{"category", strCategory}, {"output", strText}});
    }
}

} // namespace KestrelTool
