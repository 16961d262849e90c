#include "tools/kestrel/command/Output.h"
#include "tools/kestrel/debug/Debugger.h"

#include <ostream>

namespace KestrelTool
{

using nlohmann::json;

void CTextOutput::OnAnswer(const std::string&, const std::string&, const json& answer)
{
    if (!answer.is_null())
    {
        m_Output << RenderText(answer, m_pSettings == nullptr || m_pSettings->bUnicode) << std::flush;
    }
}

void CTextOutput::OnError(const std::string&, const std::string&, const std::string& strError)
{
    m_Output << std::flush;
    m_Errors << strError << std::endl;
}

void CTextOutput::OnEvent(const json& event)
{
    OnAnswer(std::string(), std::string(), event);
}

void CTextOutput::OnCommand(const std::string& strLine)
{
    if (m_bEcho)
    {
        m_Output << "(kestrel) " << strLine << "\n";
    }
}

} // namespace KestrelTool
