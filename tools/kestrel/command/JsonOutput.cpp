#include "tools/kestrel/command/Output.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// Invalid UTF-8 must not end the session, so it is replaced. Non-ASCII characters are escaped, so that no control
/// characters are written.
void WriteLine(std::ostream& output, const json& object)
{
    output << object.dump(-1, ' ', true, json::error_handler_t::replace) << std::endl;
}

json MakeAnswer(const std::string& strCommand, const std::string& strToken, bool bGood)
{
    json object = {{"answer", strCommand}, {"ok", bGood}};
    if (!strToken.empty())
    {
        object["token"] = strToken;
    }
    return object;
}

} // namespace

void CJsonOutput::OnAnswer(const std::string& strCommand, const std::string& strToken, const json& answer)
{
    json object = MakeAnswer(strCommand, strToken, true);
    if (!answer.is_null())
    {
        object["result"] = answer;
    }
    WriteLine(m_Output, object);
}

void CJsonOutput::OnError(const std::string& strCommand, const std::string& strToken, const std::string& strError)
{
    json object = MakeAnswer(strCommand, strToken, false);
    object["error"] = strError;
    WriteLine(m_Output, object);
}

void CJsonOutput::OnEvent(const json& event)
{
    WriteLine(m_Output, event);
}

} // namespace KestrelTool
