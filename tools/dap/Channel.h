#ifndef KESTREL_TOOLS_DAP_CHANNEL_H
#define KESTREL_TOOLS_DAP_CHANNEL_H

#include "tools/dap/Framing.h"

#include <nlohmann/json.hpp>

#include <mutex>
#include <optional>
#include <string>

namespace KestrelTool
{

/// A client's request.
struct SRequest
{
    int64_t nSeq = 0;
    std::string strCommand;
    nlohmann::json arguments = nlohmann::json::object();
};

/// The two directions of a conversation with a client. One thread reads; any may write. A client that is gone hears
/// nothing, and that is no error.
class CChannel
{
public:
    /// \param nInput, nOutput  descriptors that stay the caller's
    CChannel(int nInput, int nOutput) : m_nInput(nInput), m_nOutput(nOutput) {}

    /// Waits for the next request. What is no request is passed over. \return nothing at the end of the input
    std::optional<SRequest> Read();

    void Answer(const SRequest& request, const nlohmann::json& body);
    void Refuse(const SRequest& request, const std::string& strWhy);
    void Tell(const std::string& strEvent, const nlohmann::json& body);
    /// An event "output". \param strCategory  "console", "stdout" or "stderr"
    void Print(const std::string& strCategory, const std::string& strText);

private:
    std::optional<std::string> ReadText();
    void Write(nlohmann::json message);

    const int m_nInput;
    const int m_nOutput;
    CFrameReader m_Reader;
    std::mutex m_Mutex;
    int64_t m_nSeq = 0;
};

} // namespace KestrelTool

#endif
