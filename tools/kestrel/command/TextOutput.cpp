#include "tools/kestrel/Visible.h"
#include "tools/kestrel/command/Output.h"
#include "tools/session/debug/Debugger.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace KestrelTool
{

using nlohmann::json;

void CTextOutput::OnAnswer(const std::string&, const std::string&, const json& answer)
{
    if (!answer.is_null())
    {
        const std::string strText = RenderText(answer, m_pSettings == nullptr || m_pSettings->bUnicode);
        for (const SPaintedText& painted : m_Style.Paint(answer, strText))
        {
            const bool bColour = *painted.pszColour != '\0' && !painted.strText.empty();
            PutCommand(m_Output, bColour ? painted.pszColour : "");
            m_Output << painted.strText;
            PutCommand(m_Output, bColour ? "\x1b[0m" : "");
        }
        m_Output << std::flush;
    }
}

void CTextOutput::OnError(const std::string&, const std::string&, const std::string& strError)
{
    m_Output << std::flush;
    m_Errors << m_Style.Wrap(strError) << std::endl;
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
